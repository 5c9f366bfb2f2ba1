#include "files/list_split.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <string_view>

#include "files/full_path.h"
#include "xdfc.h"

namespace plov::files {
namespace {

// Doubled and closing slashes say nothing to the system, but the case repair cannot write back over them.
void append(ListPath& path, size_t& length, std::string_view part) {
  for (const char c : part)
    if (c != '/' || length == 0 || path.directory[length - 1] != '/') path.directory[length++] = c;
}

}  // namespace

bool split(frame::Call& call, const char* pattern, ListPath& path, uint32_t (*no_working_directory)(int error)) {
  if (pattern[0] == '\0') return call.refuse(XDFC_BAD_LENGTH);
  const char* const slash = strrchr(pattern, '/');
  path.file = slash ? slash + 1 : pattern;
  const std::string_view given(pattern, slash ? static_cast<size_t>(slash - pattern) : 0);

  char working_directory[kFullPathSize + 1] = "";
  std::string_view base;
  if (pattern[0] != '/') {
    if (!getcwd(working_directory, sizeof working_directory - 1)) return call.refuse(no_working_directory(errno));
    strcat(working_directory, "/");
    base = working_directory;
  }
  if (base.size() + given.size() > kListDirectoryLimit) return call.refuse(XDFC_BAD_LENGTH);

  size_t length = 0;
  append(path, length, base);
  append(path, length, given);
  if (length == 0) path.directory[length++] = '/';
  if (length > 1 && path.directory[length - 1] == '/') --length;
  path.directory[length] = '\0';
  return true;
}

}  // namespace plov::files
