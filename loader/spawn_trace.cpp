#include "loader/spawn_trace.h"

#include <stdarg.h>

#include "frame/trace_line.h"

namespace plov::loader {

int spawn_trace(char level, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  frame::trace_line("XMIS***T: ", level, format, arguments);
  va_end(arguments);
  return 0;
}

}  // namespace plov::loader
