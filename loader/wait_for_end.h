// The bounded wait for a spawned program's end.
#ifndef PLOV_LOADER_WAIT_FOR_END_H
#define PLOV_LOADER_WAIT_FOR_END_H

#include "loader/spawn_trace.h"
#include "xmis.h"

namespace plov::loader {

// Polls `parms.pid` until it has ended or `parms.time_limit` is over; stores the raw status or records the failure.
// The program is left running.
void wait_for_end(SpawnRecord& record, xmis_spawn_parameters& parms);

}  // namespace plov::loader

#endif
