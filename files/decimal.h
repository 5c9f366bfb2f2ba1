// Decimal numbers in fixed fields.
#ifndef PLOV_FILES_DECIMAL_H
#define PLOV_FILES_DECIMAL_H

#include <stdint.h>

namespace plov::files {

// Writes `value` right-aligned into buf[0] to buf[width - 1], no NUL. Positions left of the number keep what the caller
// put there; digits that do not fit are dropped from the left.
void putldn(char* buf, uint64_t value, uint32_t width);

}  // namespace plov::files

#endif
