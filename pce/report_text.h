// The lines of an exception report: each NUL-terminated, one behind the other, never past the area. Signal-safe.
#ifndef PLOV_PCE_REPORT_TEXT_H
#define PLOV_PCE_REPORT_TEXT_H

#include <stddef.h>
#include <stdint.h>

#include "plov_api.h"

namespace plov::pce {

class ReportText {
 public:
  ReportText(char* area, size_t size) : area_(area), size_(size) {}

  // Adds a line and traces it, `level` 'F' or 'D'. What does not fit is cut, a line for which nothing is left dropped.
  void add(char level, const char* format, ...) PLOV_PRINTF(3, 4);

  // With the NULs.
  uint32_t length() const { return static_cast<uint32_t>(length_); }

 private:
  char* area_;
  size_t size_;
  size_t length_ = 0;
};

// The first 32 of the bytes in hexadecimal, a blank before each four: " 00112233 44556677".
inline constexpr size_t kHexBytes = 32;
struct HexGroups {
  HexGroups(const uint8_t* bytes, size_t count);
  char text[kHexBytes * 2 + kHexBytes / 4 + 1];
};

}  // namespace plov::pce

#endif
