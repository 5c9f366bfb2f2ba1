#include "log/interim.h"

#include <errno.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <time.h>
#include <unistd.h>

#include "xdfc.h"
#include "xtr.h"

namespace plov::log {
namespace {

constexpr char kOwner[] = "ccfw";
constexpr int kE4LockMilliseconds = 10000;

}  // namespace

int create_interim(const char* path) {
  unlink(path);
  const int fd = open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0) return errno;
  close(fd);
  return 0;
}

int32_t open_stream(const char* path, const char* mode, FILE** stream, uint32_t* reason) {
  char name[kPathSize + 16];
  snprintf(name, sizeof name, "!%s", path);
  return xdfc_search_file_open2(name, mode, stream, reason);
}

bool find_owner(uid_t* user, gid_t* group) {
  struct passwd entry, *found = nullptr;
  char strings[4096];
  const int rc = getpwnam_r(kOwner, &entry, strings, sizeof strings, &found);
  if (!found) {
    xtr_trace("XLOG___F: getpwnam failed getting gid, errno is %d", rc);
    return false;
  }
  *user = found->pw_uid;
  *group = found->pw_gid;
  return true;
}

void lock_e4(const char* path, FILE* stream) {
  const auto now_in_ms = [] {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
  };
  const int64_t deadline = now_in_ms() + kE4LockMilliseconds;
  while (flock(fileno(stream), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK && errno != EINTR) {
      xtr_trace("XLOG   F: %s cannot be locked, errno is %d, going on without its lock", path, errno);
      return;
    }
    if (now_in_ms() >= deadline) {
      xtr_trace("XLOG   F: %s is locked for more than %d ms, going on without its lock", path, kE4LockMilliseconds);
      return;
    }
    const struct timespec pause = {0, 1000000};
    nanosleep(&pause, nullptr);
  }
}

}  // namespace plov::log
