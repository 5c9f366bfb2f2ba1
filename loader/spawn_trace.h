// The call record and the trace formatter of spawning.
#ifndef PLOV_LOADER_SPAWN_TRACE_H
#define PLOV_LOADER_SPAWN_TRACE_H

#include <stdint.h>

#include "plov_api.h"

namespace plov::loader {

// Where the inner functions leave the reason of a failure. Shorter than process control's record: nothing here is
// reported as an event.
struct SpawnRecord {
  uint32_t comprc;
  uint32_t sysrc;
  uint32_t data;
  char name[32];
};

// Prefix "XMIS***T: "; see frame/trace_line.h.
int spawn_trace(char level, const char* format, ...) PLOV_PRINTF(2, 3);

}  // namespace plov::loader

#endif
