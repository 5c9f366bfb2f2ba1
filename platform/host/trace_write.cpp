// Writing trace lines.
#include <errno.h>
#include <stdarg.h>
#include <time.h>

#include "platform/host/trace_echo.h"
#include "platform/host/trace_format.h"
#include "platform/host/trace_ring.h"
#include "xtr.h"

int32_t xtr_trace(const char* format, ...) {
  using namespace plov::host;
  const int saved_errno = errno;
  Line line;
  va_list arguments;
  va_start(arguments, format);
  size_t length = format_line(line.text, sizeof line.text, format ? format : "(null)", arguments);
  va_end(arguments);
  if (length > 0 && line.text[length - 1] == '\n') --length;
  line.length = static_cast<uint32_t>(length);
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  line.seconds = static_cast<uint32_t>(now.tv_sec);
  line.nanoseconds = static_cast<uint32_t>(now.tv_nsec);
  line.tid = xtr_gettid();
  line.pid = xtr_getpid();
  if (Ring* ring = trace_ring()) store_line(*ring, line);
  echo_line(line);
  errno = saved_errno;
  return 0;
}

int32_t xtr_dump_bytes(const void* bytes, uint32_t size) {
  constexpr uint32_t kRow = 16;
  const unsigned char* at = static_cast<const unsigned char*>(bytes);
  for (uint32_t offset = 0; at && offset < size;) {
    char hex[kRow * 3 + 1] = {}, text[kRow + 1] = {};
    const uint32_t count = size - offset < kRow ? size - offset : kRow;
    for (uint32_t i = 0; i < count; ++i) {
      const unsigned char byte = at[offset + i];
      hex[i * 3] = "0123456789ABCDEF"[byte >> 4];
      hex[i * 3 + 1] = "0123456789ABCDEF"[byte & 15];
      hex[i * 3 + 2] = ' ';
      text[i] = byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.';
    }
    xtr_trace("%08X  %-48s |%s|", offset, hex, text);
    if (size - offset <= kRow) break;
    offset += kRow;
  }
  return 0;
}
