// The call record of restart, its trace formatter, and what one call asks for.
#ifndef PLOV_RESTART_RECORD_H
#define PLOV_RESTART_RECORD_H

#include <stdint.h>

#include "plov_api.h"

namespace plov::restart {

inline constexpr uint32_t kKindRestart = 1;

// Where the inner functions leave the reason of the first failure, and what the next log entry is to carry.
struct RestartRecord {
  uint32_t comprc;
  uint32_t sysrc;
  uint32_t data;  // explains the latest failure
  uint32_t active;
  char name[16];              // padded with blanks
  const void* gds;            // secondary data: a block that begins with its length, big-endian; NULL for none
  uint32_t kind;              // kKindRestart
  uint32_t reboot_requested;  // the next log entry asks for a restart
};
#if PLOV_ILP32
static_assert(sizeof(RestartRecord) == 44);
#endif

// The first code stays, the larger grade wins.
void fail(RestartRecord& record, uint32_t grade, uint32_t code);

// Prefix "XBT****T: "; see frame/trace_line.h. Always 0.
int restart_trace(char level, const char* format, ...) PLOV_PRINTF(2, 3);

// What the caller asks for, found good. The texts are the caller's; a message without an end counts up to its limit.
struct Request {
  const char* name;
  uint32_t name_length;
  const char* message;
  uint32_t message_length;
  uint32_t type;
};

}  // namespace plov::restart

#endif
