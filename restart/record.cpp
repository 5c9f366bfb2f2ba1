#include "restart/record.h"

#include <stdarg.h>

#include "frame/trace_line.h"

namespace plov::restart {

void fail(RestartRecord& record, uint32_t grade, uint32_t code) {
  if (record.comprc == 0) record.comprc = code;
  if (record.sysrc < grade) record.sysrc = grade;
}

int restart_trace(char level, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  frame::trace_line("XBT****T: ", level, format, arguments);
  va_end(arguments);
  return 0;
}

}  // namespace plov::restart
