// The walk through a log file, newest log first, that collects the logs a caller asks for.
#ifndef PLOV_LOG_RETRIEVE_WALK_H
#define PLOV_LOG_RETRIEVE_WALK_H

#include "log/retrieve/entry.h"

namespace plov::log {

struct Criteria {
  uint16_t options;
  xlog_eventid eventid;
  xlog_timestamp start;
  xlog_timestamp end;
  const xlog_pattern* patterns;
  uint32_t maximum;  // 0: no limit
  bool all_blocks;   // else those of `block_ids`
  BlockIds block_ids;
};

struct Found {
  xlog_log_entry* entries = nullptr;  // newest first
  uint32_t count = 0;
};

// After a failure `found` holds what was read before it.
Failure collect_logs(const Criteria& criteria, const xlog_file_header& file_header, Window& window, Expander& expander,
                     Found* found);

}  // namespace plov::log

#endif
