#include "pce/report_text.h"

#include <stdarg.h>
#include <stdio.h>

#include <algorithm>

#include "xtr.h"

namespace plov::pce {

void ReportText::add(char level, const char* format, ...) {
  if (length_ >= size_) return;
  char* const line = area_ + length_;
  const size_t room = size_ - length_;
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(line, room, format, arguments);
  va_end(arguments);
  length_ += std::min(length > 0 ? static_cast<size_t>(length) : 0, room - 1) + 1;
  if (level == 'F')
    xtr_trace("XPCE___F: %s", line);
  else
    xtr_trace("XPCE___D: %s", line);
}

HexGroups::HexGroups(const uint8_t* bytes, size_t count) {
  char* at = text;
  for (size_t i = 0; i < std::min(count, kHexBytes); ++i) {
    if (i % 4 == 0) *at++ = ' ';
    *at++ = "0123456789ABCDEF"[bytes[i] >> 4];
    *at++ = "0123456789ABCDEF"[bytes[i] & 15];
  }
  *at = '\0';
}

}  // namespace plov::pce
