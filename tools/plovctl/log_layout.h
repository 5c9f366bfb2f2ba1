// Where the logs of a log file lie, found by reading its bytes alone. Nothing here trusts a field before it is checked:
// any bytes may be given.
#ifndef PLOV_CTL_LOG_LAYOUT_H
#define PLOV_CTL_LOG_LAYOUT_H

#include <cstdint>
#include <optional>
#include <vector>

#include "hex.h"
#include "xlog_format.h"

namespace plov::ctl {

std::optional<xlog_file_header> load_file_header(Bytes file);

// Why no log can be read at an offset.
enum class Flaw { none, header_cut, too_many_blocks, size_below_header, size_beyond_end };

struct LoadedLog {
  Flaw flaw = Flaw::header_cut;
  xlog_log_info info{};  // meaningful unless the header is cut
  uint32_t header_size() const { return 37u + 3u * info.num_blocks; }
};

// Reads the log header at `offset`; the log must end at or below `end`, which must not be above the file's size.
LoadedLog load_log(Bytes file, uint64_t offset, uint32_t end);

// The entry of a block whose log header has been found whole.
xlog_block_info load_block_info(Bytes file, uint32_t log_offset, uint32_t index);

// Bytes between two logs that belong to no readable log.
struct Gap {
  uint32_t begin;
  uint32_t end;
  Flaw flaw;            // of the log that was expected at `begin`
  xlog_log_info found;  // what stood there, unless the header was cut
};

struct LogLayout {
  std::vector<uint32_t> logs;  // offsets, rising
  std::vector<Gap> gaps;       // rising
  uint32_t end = 0;  // of the data: `file_size`, or less when the file is shorter; behind the newest log while
                     // room is made
};

// Walks the logs from the first one by their lengths. Where that breaks off, it goes on at the next log that the chain
// from the newest log names. Time is linear in the file's size.
LogLayout lay_out(Bytes file, const xlog_file_header& header);

}  // namespace plov::ctl

#endif
