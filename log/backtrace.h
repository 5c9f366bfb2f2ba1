// The calling thread's stack as text.
#ifndef PLOV_LOG_BACKTRACE_H
#define PLOV_LOG_BACKTRACE_H

#include <stddef.h>

namespace plov::log {

inline constexpr size_t kBacktraceSize = 65280;  // its NUL included

// Appends one frame, as its symbol text names it, to the terminated `text`, behind a line feed when it is not the first
// one. False when it does not fit; nothing is appended then.
bool append_frame(char (&text)[kBacktraceSize], size_t* length, const char* symbol);

}  // namespace plov::log

#endif
