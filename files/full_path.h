// From a caller's name to the full path: the first step of every file service.
#ifndef PLOV_FILES_FULL_PATH_H
#define PLOV_FILES_FULL_PATH_H

#include <stddef.h>
#include <stdint.h>

#include "frame/call.h"

namespace plov::files {

inline constexpr size_t kFullPathSize = 4096;

// "!" and an explicit path, else a bare name whose directory the path table knows. Result 0, the code of the failed
// look-up, or ENAMETOOLONG.
uint32_t xdfc_getfilepath(const char* name, char (&full_path)[kFullPathSize]);

// The same inside an exported call. To its caller every failed look-up is XDFC_NO_ENTRY; only a path that is too long
// has a code of its own.
bool resolve(frame::Call& call, const char* name, char (&full_path)[kFullPathSize]);

}  // namespace plov::files

#endif
