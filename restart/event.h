// Restart's log entries: a text header of fixed size, written through the microcode log.
#ifndef PLOV_RESTART_EVENT_H
#define PLOV_RESTART_EVENT_H

#include <stddef.h>

#include <span>

#include "restart/record.h"

namespace plov::restart {

// Lines of 128 characters without NULs, filled up with blanks, as the log shows them.
struct EventHeader {
  char line1[128];
  char line2[128];
  char reboot[128];
  char unused[464];
};
static_assert(sizeof(EventHeader) == 848);

// "name: (id) line 1" and, under it, ">   : (id) line 2". A line that is NULL is "(Null Message)".
EventHeader set_header(const char* function, const char* line1, const char* line2, uint32_t id);

struct SecondaryBlock {
  const void* data;
  uint32_t size;
};

inline constexpr uint32_t kLogEvent = 0x100, kPutEvent = 0;  // event kinds

// Records the failure `id`, met by `function`, with the record's data word, its GDS block and up to 5 more blocks.
// Result 0 or the log's reason code. The record's reboot request is used up.
uint32_t log_it_bt(RestartRecord& record, const char* function, const char* line1, const char* line2, uint32_t id,
                   uint32_t kind, std::span<const SecondaryBlock> secondary = {});

// A failed system service; a failure of lesser weight.
inline uint32_t log_event(RestartRecord& record, const char* function, const char* line1, const char* line2,
                          uint32_t id) {
  return log_it_bt(record, function, line1, line2, id, kLogEvent);
}
inline uint32_t put_event(RestartRecord& record, const char* function, const char* line1, const char* line2,
                          uint32_t id) {
  return log_it_bt(record, function, line1, line2, id, kPutEvent);
}

}  // namespace plov::restart

#endif
