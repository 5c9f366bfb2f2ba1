#include "platform/host/trace_echo.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/host/trace_text.h"

namespace plov::host {
namespace {

std::atomic<int> descriptor{-1};
struct stat target;

__attribute__((constructor)) void open_echo() {
  const char* name = secure_getenv("PLOV_TRACE");
  if (!name || *name == '\0') return;
  const int fd = strcmp(name, "stderr") == 0 ? STDERR_FILENO
                                             : open(name, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY, 0600);
  if (fd >= 0 && fstat(fd, &target) == 0) descriptor.store(fd);
}

// A reader that is gone must not end a process that only tells what it does: its SIGPIPE is taken back.
void write_quietly(int fd, const char* text, size_t length) {
  // Nor must a cancelled thread end here, with whatever lock it traces under.
  int cancel_state;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_state);
  sigset_t pipe, before, pending;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  sigpending(&pending);
  pthread_sigmask(SIG_BLOCK, &pipe, &before);
  if (write(fd, text, length) < 0 && errno == EPIPE) {
    descriptor.store(-1);
    const timespec at_once = {};
    if (!sigismember(&pending, SIGPIPE)) sigtimedwait(&pipe, nullptr, &at_once);
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  pthread_setcancelstate(cancel_state, nullptr);
}

}  // namespace

void echo_line(const Line& line) {
  const int fd = descriptor.load(std::memory_order_relaxed);
  if (fd < 0) return;
  // A program that closes descriptors it does not know may meanwhile have a file of its own under this number.
  struct stat now;
  if (fstat(fd, &now) != 0 || now.st_dev != target.st_dev || now.st_ino != target.st_ino) {
    descriptor.store(-1);
    return;
  }
  char text[kShownSize];
  const size_t length = show_line(line, text);
  write_quietly(fd, text, length);
}

}  // namespace plov::host
