#include "files/full_path.h"

#include <errno.h>
#include <string.h>

#include "xdfc.h"

namespace plov::files {

uint32_t xdfc_getfilepath(const char* name, char (&full_path)[kFullPathSize]) {
  size_t directory = 0;
  if (name[0] == '!') {
    ++name;
  } else {
    static_assert(kFullPathSize >= XDFC_PATH_SIZE);
    uint32_t comprc = 0;
    xdfc_query_file_location(name, full_path, &comprc);
    if (comprc != 0) return comprc;
    directory = strlen(full_path);
  }
  const size_t length = strlen(name);
  if (length >= kFullPathSize - directory) return ENAMETOOLONG;
  memcpy(full_path + directory, name, length + 1);
  return 0;
}

bool resolve(frame::Call& call, const char* name, char (&full_path)[kFullPathSize]) {
  const uint32_t failure = xdfc_getfilepath(name, full_path);
  if (failure == 0) return true;
  return call.refuse(failure == ENAMETOOLONG ? failure : XDFC_NO_ENTRY);
}

}  // namespace plov::files
