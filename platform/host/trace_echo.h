// PLOV_TRACE=stderr, or a file name: every line also goes there as it comes.
#ifndef PLOV_HOST_TRACE_ECHO_H
#define PLOV_HOST_TRACE_ECHO_H

#include "platform/host/trace_ring.h"

namespace plov::host {

// Looked up once, when the library is loaded; ignored in a set-user-id program. Signal-safe.
void echo_line(const Line& line);

}  // namespace plov::host

#endif
