// Restart's own message lookup.
#ifndef PLOV_RESTART_LOOKUP_H
#define PLOV_RESTART_LOOKUP_H

#include "frame/memory.h"
#include "restart/record.h"
#include "xbt.h"

namespace plov::restart {

using Line = frame::Owned<char>;

// Line `part` (1 or 2) of message `id`, formatted with the arguments that follow and cut to 78 characters. An id or a
// part that the table does not have gives a line that says so; without memory there is none, which the record then
// tells. A text that had to be cut is reported.
Line lookup_err(RestartRecord& record, uint32_t count, const xbt_message* table, uint32_t id, uint32_t part, ...);

}  // namespace plov::restart

#endif
