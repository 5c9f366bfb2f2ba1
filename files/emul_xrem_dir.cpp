// The long listing of a remote directory command.
#include <errno.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <stdio.h>
#include <time.h>
#include <unistd.h>

#include "files/emul_directory.h"
#include "files/long_line.h"
#include "files/reply.h"
#include "frame/call.h"
#include "xdfc.h"
#include "xtr.h"

namespace plov::files {
namespace {

uint32_t no_working_directory(int error) {
  xtr_trace("XDFCXRMF:    error %d from getpwd()", error);
  return XDFC_LIST_NO_WORKING_DIRECTORY;
}

int current_year() {
  const time_t now = time(nullptr);
  struct tm local;
  return localtime_r(&now, &local) ? local.tm_year + 1900 : 0;
}

// Entries are looked at by their names alone, not along the whole path each time.
class LookAt {
 public:
  explicit LookAt(const char* path) : directory_(::open(path, O_PATH | O_DIRECTORY | O_CLOEXEC)) {}
  ~LookAt() {
    if (directory_ >= 0) close(directory_);
  }
  LookAt(const LookAt&) = delete;
  LookAt& operator=(const LookAt&) = delete;

  bool status(const char* name, struct stat* status) const {
    return directory_ >= 0 && fstatat(directory_, name, status, AT_SYMLINK_NOFOLLOW) == 0;
  }

  // Null when `name` is no link that can be read.
  const char* target(const char* name, char (&buffer)[kLongNameSize + 1]) const {
    const ssize_t length = readlinkat(directory_, name, buffer, sizeof buffer - 1);
    if (length < 0) return nullptr;
    buffer[length] = '\0';
    return buffer;
  }

 private:
  int directory_;
};

bool add_line(frame::Call& call, Reply& reply, const LookAt& directory, const char* name, const struct stat& status,
              int this_year) {
  char line[kLongLineSize], target[kLongNameSize + 1];
  const char* const leads_to = S_ISLNK(status.st_mode) ? directory.target(name, target) : nullptr;
  const size_t length = format_long_line(line, status, name, leads_to, this_year);
  const uint32_t failure = reply.append({line, length});
  return failure == 0 || call.refuse(failure);
}

void list(frame::Call& call, Reply& reply, const EmulatedDirectory& directory) {
  const LookAt look_at(directory.path());
  const int this_year = current_year();
  int64_t total_blocks = 0;
  for (const struct dirent* const entry : directory.entries()) {
    const char* const name = entry->d_name;
    if (is_dot_or_dot_dot(name)) continue;
    struct stat status;
    if (!look_at.status(name, &status)) {
      xtr_trace("XDFCXRMF:    lstat of [%s] failed, errno = %d", name, errno);
      call.refuse(XDFC_LIST_STAT_FAILED);
      break;
    }
    total_blocks += status.st_blocks;
    const bool wanted = directory.whole() || fnmatch(directory.file(), name, FNM_NOESCAPE | FNM_CASEFOLD) == 0;
    if (wanted && !add_line(call, reply, look_at, name, status, this_year)) break;
  }
  xtr_trace("XDFCXRMD:    total blocks = %ld", static_cast<long>(total_blocks));
  // The sum of a listing that broke off would be a wrong one.
  if (!call.ok() || !directory.totalled()) return;
  char total[32];
  const int length = snprintf(total, sizeof total, "total %lld\n", static_cast<long long>(total_blocks));
  if (const uint32_t failure = reply.prepend({total, static_cast<size_t>(length)}); failure != 0) call.refuse(failure);
}

}  // namespace
}  // namespace plov::files

int32_t xdfc_emul_xrem_dir(char** reply, const char* pattern, uint32_t* comprc) {
  plov::frame::Call call("xdfc_emul_xrem_dir", "XDFCXRMT: -> xdfc_emul_xrem_dir", "XDFCXRMT: <- xdfc_emul_xrem_dir",
                         comprc);
  if (call.text(pattern, XDFC_BAD_ARGUMENT_2) && call.writable(reply, sizeof *reply, XDFC_BAD_ARGUMENT_1))
    *reply = plov::files::emulate(call, pattern, plov::files::no_working_directory, plov::files::list);
  return call.leave();
}
