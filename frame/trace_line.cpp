#include "frame/trace_line.h"

#include <stdio.h>
#include <string.h>

#include "xtr.h"

namespace plov::frame {
namespace {

// The line is read as a format though no argument follows. Doubling each "%" that is not already one of a pair leaves
// "%%" to come out as "%" and lets a conversion print as it stands instead of reading what is not there.
void hand_on(const char* line) {
  char format[2 * 256];
  char* at = format;
  for (; *line != '\0'; ++line) {
    *at++ = *line;
    if (*line != '%') continue;
    *at++ = '%';
    if (line[1] == '%') ++line;
  }
  *at = '\0';
  xtr_trace(format);
}

}  // namespace

int trace_line(const char* prefix, char level, const char* format, va_list arguments) {
  constexpr size_t kSize = 256, kLevelPlace = 7;
  char message[kSize], line[kSize];
  vsnprintf(message, sizeof message, format, arguments);
  snprintf(line, sizeof line, "%s", prefix);
  line[kLevelPlace] = level;
  strncat(line, message, sizeof line - 1 - strlen(line));
  const size_t length = strlen(line);
  if (length > 0 && line[length - 1] == '\n') line[length - 1] = '\0';
  hand_on(line);
  return 0;
}

int pce_trace_line(char level, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  trace_line("XPCE*SOT: ", level, format, arguments);
  va_end(arguments);
  return 0;
}

}  // namespace plov::frame
