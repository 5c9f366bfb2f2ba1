// Who records, and when.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include "xlog.h"
#include "xtr.h"

namespace plov::log {
namespace {

constexpr size_t kCommandLineLimit = 127;
constexpr uint16_t kVersion = 2;
constexpr long kPacing = 10000000;  // nanoseconds

void read_clock(xlog_timestamp* timestamp) {
  struct timeval now;
  *timestamp = {};
  if (gettimeofday(&now, nullptr) != 0) {
    xtr_trace("XLOG   F: gettimeofday failed with %d", errno);
    return;
  }
  timestamp->seconds = static_cast<uint32_t>(now.tv_sec);
  timestamp->hundredths = static_cast<uint8_t>(now.tv_usec / 10000);
}

// The first word of this process's command line, from behind its last "/".
void read_process_name(char (&name)[XLOG_PROCESS_NAME_SIZE]) {
  char path[32], line[kCommandLineLimit + 1] = "";
  snprintf(path, sizeof path, "/proc/%d/cmdline", static_cast<int>(xtr_getpid()));
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return;
  const ssize_t length = read(fd, line, kCommandLineLimit);
  close(fd);
  if (length < 0) return;
  line[length] = '\0';
  const char* slash = strrchr(line, '/');
  const char* word = slash ? slash + 1 : line;
  xtr_trace("XLOG___D: Logging process is [%s]", word);
  memcpy(name, word, strnlen(word, sizeof name));
}

// Keeps two events of one process at least a hundredth of a second apart; a signal must not shorten it.
void pace() {
  struct timespec rest = {0, kPacing};
  while (clock_nanosleep(CLOCK_MONOTONIC, 0, &rest, &rest) == EINTR) {
  }
}

}  // namespace
}  // namespace plov::log

void xlog_get_standard(xlog_standard_block* block, xlog_timestamp* timestamp) {
  using namespace plov::log;
  xtr_trace("XLOG   D: -> xlog_get_standard");
  *block = {};
  read_clock(timestamp);
  char name[XLOG_PROCESS_NAME_SIZE] = {};
  read_process_name(name);
  memcpy(block->process.process_name, name, sizeof name);
  // Under the log lock, and meant to be: callers tell two events of one process by their stamps.
  pace();
  block->version = kVersion;
  block->process.process_id = xtr_getpid();
  block->process.parent_process_id = static_cast<uint32_t>(getppid());
  block->process.thread_id = xtr_gettid();
  xtr_trace("XLOG   D: <- xlog_get_standard");
}
