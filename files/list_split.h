// Where a listing looks and for what: a wildcard path taken apart.
#ifndef PLOV_FILES_LIST_SPLIT_H
#define PLOV_FILES_LIST_SPLIT_H

#include <stddef.h>
#include <stdint.h>

#include "frame/call.h"

namespace plov::files {

// Characters of a directory that a listing takes, the working directory in front of a relative pattern included.
inline constexpr size_t kListDirectoryLimit = 255;

struct ListPath {
  char directory[kListDirectoryLimit + 1];  // absolute, each "/" once, none at its end but for the root itself
  const char* file;                         // the last component, within the caller's pattern; may be ""
};

// Takes `pattern` apart. False: XDFC_BAD_LENGTH for an empty pattern or a directory over the limit, and for a working
// directory that is not to be had what `no_working_directory` makes of the errno: each function traces it under its
// own tag.
bool split(frame::Call& call, const char* pattern, ListPath& path, uint32_t (*no_working_directory)(int error));

}  // namespace plov::files

#endif
