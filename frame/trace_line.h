// The trace formatter of the components that put a level letter into a fixed prefix (process control, restart,
// spawning).
#ifndef PLOV_FRAME_TRACE_LINE_H
#define PLOV_FRAME_TRACE_LINE_H

#include <stdarg.h>

#include "plov_api.h"

namespace plov::frame {

// Puts `level` at the eighth place of the ten-character prefix ("XPCE*SOT: "), appends the message, cuts the line to
// 255 characters, drops one newline at its end and traces it. The line is handed on as a format and read again, as its
// readers are used to: "%%" in the message comes out as "%". Always 0.
int trace_line(const char* prefix, char level, const char* format, va_list arguments);

inline constexpr char kPceTag[] = "XPCE*SO";

// Process control's own: prefix "XPCE*SOT: ". Signal-safe: it formats no floating point.
int pce_trace_line(char level, const char* format, ...) PLOV_PRINTF(2, 3);

}  // namespace plov::frame

#endif
