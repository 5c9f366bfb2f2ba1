#include "files/decimal.h"

namespace plov::files {

void putldn(char* buf, uint64_t value, uint32_t width) {
  if (width == 0) return;
  buf[width - 1] = static_cast<char>('0' + value % 10);
  if (value >= 10) putldn(buf, value / 10, width - 1);
}

}  // namespace plov::files
