// xtr_trace of this test program, which keeps the lines instead. Included once, by a program that looks at its trace.
#ifndef PLOV_TESTS_TRACE_DOUBLE_H
#define PLOV_TESTS_TRACE_DOUBLE_H

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "xtr.h"

// In place, for signal handlers trace too; of more lines than fit only the number is kept.
inline char trace_lines[64][600];
inline size_t trace_count;

inline std::vector<std::string> traced() {
  return {trace_lines, trace_lines + (trace_count < 64 ? trace_count : 64)};
}

int32_t xtr_trace(const char* format, ...) {
  const int saved_errno = errno;
  va_list arguments;
  va_start(arguments, format);
  if (trace_count < 64) vsnprintf(trace_lines[trace_count], sizeof *trace_lines, format, arguments);
  va_end(arguments);
  ++trace_count;
  errno = saved_errno;
  return 0;
}

#endif
