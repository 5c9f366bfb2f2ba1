// What a full log may lose: the keep counts are applied, and the bytes still wanted are spread over the priorities.
#ifndef PLOV_LOG_MAINTAIN_TALLY_H
#define PLOV_LOG_MAINTAIN_TALLY_H

#include <stdint.h>

#include "log/maintain/loaded_file.h"
#include "xlog.h"

namespace plov::log {

struct Tally {
  uint64_t deleted = 0;   // bytes of deleted logs
  uint64_t kept[3] = {};  // bytes of kept logs of priority 0, 1, 2. Priority 3 counts nowhere.
};

// Goes through each class, newest log first. A log beyond its keep count is marked as deleted, one within it gets its
// priority; all in memory. False: `err` says why.
bool tally_logs(const xlog_file_header& header, const xlog_configuration& configuration, LoadedFile& file,
                xlog_err_interface* err, Tally* tally);

// The amounts that bring the file to half of its size. Pure.
xlog_stage_result spread(const Tally& tally, uint16_t max_file_size);

}  // namespace plov::log

#endif
