// The number of regular files that match.
#include <errno.h>
#include <fnmatch.h>
#include <string.h>
#include <sys/stat.h>

#include "files/directory.h"
#include "files/list_split.h"
#include "frame/call.h"
#include "xdfc.h"
#include "xtr.h"

namespace plov::files {
namespace {

uint32_t no_working_directory(int error) {
  xtr_trace("XDFCCNTF:    error %d from getpwd()", error);
  return XDFC_LIST_NO_WORKING_DIRECTORY;
}

// A link counts by what it leads to; so is judged what the file system gives no type for. False: a failure.
bool is_regular(frame::Call& call, int directory, const ListPath& path, const struct dirent& entry, bool& regular) {
  regular = entry.d_type == DT_REG;
  if (entry.d_type != DT_LNK && entry.d_type != DT_UNKNOWN) return true;
  struct stat status;
  if (fstatat(directory, entry.d_name, &status, 0) == 0) {
    regular = S_ISREG(status.st_mode);
    return true;
  }
  const int error = errno;
  char full_path[sizeof path.directory + sizeof entry.d_name];
  snprintf(full_path, sizeof full_path, "%s/%s", path.directory, entry.d_name);
  xtr_trace("XDFCCNTF:    stat() of [%s] failed, errno = %d (%s)", full_path, error, strerror(error));
  return call.refuse(XDFC_LIST_STAT_FAILED);
}

uint32_t count_files(frame::Call& call, const char* pattern) {
  ListPath path;
  if (!split(call, pattern, path, no_working_directory)) return 0;
  Directory directory(path.directory);
  if (!directory.is_open()) {
    xtr_trace("XDFCCNTF:    opendir() of [%s] failed, errno = %d", path.directory, directory.error());
    call.refuse(XDFC_LIST_OPEN_FAILED);
    return 0;
  }
  uint32_t count = 0;
  while (const struct dirent* const entry = directory.next()) {
    if (fnmatch(path.file, entry->d_name, FNM_NOESCAPE) != 0) continue;
    bool regular;
    if (!is_regular(call, directory.descriptor(), path, *entry, regular)) return count;
    count += regular;
  }
  if (directory.error() != 0) {
    xtr_trace("XDFCCNTF:    readdir() of [%s] failed, errno = %d", path.directory, directory.error());
    call.refuse(XDFC_LIST_READ_FAILED);
  }
  return count;
}

}  // namespace
}  // namespace plov::files

int32_t xdfc_count_files(uint32_t* count, const char* pattern, uint32_t* comprc) {
  plov::frame::Call call("xdfc_count_files", "XDFCCNTT: -> xdfc_count_files", "XDFCCNTT: <- xdfc_count_files", comprc);
  if (call.writable(count, sizeof *count, XDFC_BAD_ARGUMENT_1) && call.text(pattern, XDFC_BAD_ARGUMENT_2)) {
    *count = plov::files::count_files(call, pattern);
    if (!call.ok()) {
      xtr_trace("XDFCCNTF:    count reset to 0 from %d because of error", *count);
      *count = 0;
    }
    xtr_trace("XDFCCNTF:    filespec=[%s], count=%d, sysrc=%X, comprc=%X", pattern, *count, call.sysrc(),
              call.comprc());
  }
  return call.leave();
}
