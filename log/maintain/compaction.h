// Marking logs for deletion and closing the gaps, in memory: the file as it will be.
#ifndef PLOV_LOG_MAINTAIN_COMPACTION_H
#define PLOV_LOG_MAINTAIN_COMPACTION_H

#include <stdint.h>

#include "log/maintain/loaded_file.h"
#include "xlog.h"

namespace plov::log {

class Compaction {
 public:
  // `header` is the live file's; `file` holds the data up to their end, which lies at `end`.
  Compaction(const xlog_file_header& header, LoadedFile& file, uint32_t end, xlog_err_interface* err);

  // Marks logs as deleted until the amounts are used up, oldest first. The amounts fall by what was marked.
  bool mark(xlog_stage_result* amounts);

  // Closes the gaps. Afterwards header() and the file's first header().file_size bytes are the finished file's.
  bool close_gaps();

  // The first byte that changed.
  uint32_t first_moved() const { return first_moved_; }
  const xlog_file_header& header() const { return header_; }

 private:
  bool load(uint32_t offset, xlog_log_info* info, uint16_t error_code, uint16_t zero_code);
  bool find_start(uint32_t* start);
  void note_pruning(const xlog_timestamp& last_deleted, uint32_t run);
  void enter(uint8_t event_class, uint32_t offset);

  xlog_file_header header_;
  LoadedFile& file_;
  const uint32_t end_;
  xlog_err_interface* err_;
  uint32_t first_moved_ = 0;
  uint32_t write_ = 0;  // the finished file ends here so far
};

// The log that stands for a run of deleted ones, with and without its UTC offset block.
inline constexpr uint32_t kPrunedLogSize = sizeof(xlog_log_info) + sizeof(xlog_block_info) + sizeof(xlog_utc_block);
inline constexpr uint32_t kPrunedLogBareSize = sizeof(xlog_log_info);
static_assert(kPrunedLogSize == 45 && kPrunedLogBareSize == 37);

}  // namespace plov::log

#endif
