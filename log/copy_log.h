// Copies of whole log files: 0600 from the first byte, never through a link, and the older copy stays until the new one
// is complete.
#ifndef PLOV_LOG_COPY_LOG_H
#define PLOV_LOG_COPY_LOG_H

#include <stdint.h>
#include <stdio.h>

#include "log/names.h"

namespace plov::log {

// A path as the file services take it.
struct ExplicitName {
  explicit ExplicitName(const char* path) { snprintf(text, sizeof text, "!%s", path); }
  char text[kPathSize + 16];
};

// Whether a copy failed with this code because there is no room for it.
bool disk_full(uint32_t code);

// Result and code are those of xdfc_file_copy; a file copied onto itself is XDFC_EXISTS.
int32_t copy_log(const char* source, const char* target, uint32_t* code);

}  // namespace plov::log

#endif
