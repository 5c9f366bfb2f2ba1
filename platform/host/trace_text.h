// How a stored line is shown.
#ifndef PLOV_HOST_TRACE_TEXT_H
#define PLOV_HOST_TRACE_TEXT_H

#include <stddef.h>

#include "platform/host/trace_ring.h"

namespace plov::host {

inline constexpr size_t kShownSize = kTextSize + 64;

// Writes "2026-05-01 12:34:56.123456Z PID/TID text\n" and returns its length, at most kShownSize. UTC: the local time
// is not to be had in a signal handler. Control characters show as "."; bytes above 127 stay. Signal-safe.
size_t show_line(const Line& line, char* out);

}  // namespace plov::host

#endif
