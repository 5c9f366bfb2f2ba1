#include "files/emul_directory.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include "xdfc.h"
#include "xtr.h"

namespace plov::files {
namespace {

// Component by component the repair compares as a shell does: a path that holds a wildcard would be led astray. What is
// not found stays as it was asked for.
void repair_case(char* path) {
  if (!strpbrk(path, "*[")) xdfc_fixpathcase(path);
}

bool is_directory(const char* path) {
  struct stat status;
  return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

bool is_dot_or_dot_dot(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

EmulatedDirectory::~EmulatedDirectory() {
  for (struct dirent* const entry : entries()) PLOV_FREE(entry);
}

bool EmulatedDirectory::open(frame::Call& call, const ListPath& request) {
  strcpy(path_, request.directory);
  repair_case(path_);
  file_ = request.file;
  totalled_ = file_[strspn(file_, "*")] == '\0';
  if (!whole()) {
    char named[kFullPathSize];
    const int length = snprintf(named, sizeof named, "%s/%s", strcmp(path_, "/") == 0 ? "" : path_, file_);
    if (static_cast<size_t>(length) >= sizeof named) return call.refuse(ENAMETOOLONG);
    repair_case(named);
    if (is_directory(named)) {
      strcpy(path_, named);
      file_ = "";
      totalled_ = true;
    }
  }

  struct dirent** list = nullptr;
  const int count = scandir(path_, &list, nullptr, alphasort);
  if (count < 0) {
    xtr_trace("XDFCXRMF:    scandir of [%s] failed, errno = %d", path_, errno);
    return call.refuse(whole() ? XDFC_LIST_NO_DIRECTORY : XDFC_LIST_NO_PATH);
  }
  entries_.reset(list);
  count_ = static_cast<size_t>(count);
  return count > 0 || !whole() || call.refuse(XDFC_LIST_EMPTY);
}

char* emulate(frame::Call& call, const char* pattern, uint32_t (*no_working_directory)(int error),
              void (*list)(frame::Call& call, Reply& reply, const EmulatedDirectory& directory)) {
  ListPath request;
  if (!split(call, pattern, request, no_working_directory)) return nullptr;
  EmulatedDirectory directory;
  if (!directory.open(call, request)) return nullptr;
  Reply reply;
  list(call, reply, directory);
  return reply.release();
}

}  // namespace plov::files
