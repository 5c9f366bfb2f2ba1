#include "files/path_table_load.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

#include "files/full_path.h"
#include "files/path_table.h"
#include "frame/memory.h"
#include "xdfc.h"
#include "xtr.h"

unsigned char xdfc_file_req[XDFC_TABLE_SIZE];

namespace plov::files {
namespace {

constexpr char kTableName[] = "ywkddfc.trm";
constexpr size_t kWorkingDirectoryLimit = 1024;

// Error-checking, so that a crash inside the load that looks a file up for its own report fails instead of hanging.
pthread_mutex_t load_mutex = PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP;
std::atomic<bool> loaded;

__attribute__((constructor)) void keep_forked_children_free() {
  // The thread that was loading does not exist in the child.
  pthread_atfork(nullptr, nullptr, [] { load_mutex = PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP; });
}

// Opens the table in the working directory, else in the console directory, and writes which of them, with its "/", to
// `base`. -1 with errno when it is in neither.
int open_table(char (&base)[kFullPathSize]) {
  // A working directory that cannot be named cannot replace a "*" either, so the table is not looked for there.
  const bool known = getcwd(base, kWorkingDirectoryLimit + 1) != nullptr;
  if (known)
    strcat(base, "/");
  else
    base[0] = '\0';
  xtr_trace("XDFCI  F: Looking for ywkddfc.trm in the current directory [%s].", base);
  int file = known ? open(kTableName, O_RDONLY | O_CLOEXEC) : -1;
  if (file >= 0) {
    xtr_trace("XDFCI  F: Found ywkddfc.trm in the current directory [%s].", base);
    return file;
  }
  xtr_trace("XDFCI  F: Could not open [%s] in the current directory [%s] (rc=%d).", kTableName, base, errno);

  const char* console = getenv("CONSOLE_PATH");
  if (!console) console = "/console/";
  char path[kFullPathSize];
  const int length = snprintf(path, sizeof path, "%s%s", console, kTableName);
  xtr_trace("XDFCI  F: Will try [%s].", path);
  if (static_cast<size_t>(length) < sizeof path) {
    snprintf(base, sizeof base, "%s", console);
    file = open(path, O_RDONLY | O_CLOEXEC);
  } else {
    errno = ENAMETOOLONG;
  }
  if (file < 0) xtr_trace("XDFCI  F: Error on Open of [%s].(rc=%d)", path, errno);
  return file;
}

using Text = frame::Owned<char>;

// Reads the whole open file. Result 0 or an errno.
int read_whole(int file, Text& text, size_t& size) {
  struct stat status;
  if (const int rc = fstat(file, &status); rc != 0) {
    const int error = errno;
    xtr_trace("XDFCI  F: Error on fstat of YWKDDFC.TRM.(rc=%d,errno=%d )", rc, error);
    return error;
  }
  const bool sensible = status.st_size <= INT_MAX;
  size = sensible ? static_cast<size_t>(status.st_size) : 0;
  errno = ENOMEM;
  text.reset(sensible ? static_cast<char*>(PLOV_MALLOC(size > 0 ? size : 1)) : nullptr);
  if (!text) {
    const int error = errno;
    xtr_trace("XDFCI  F: Error on malloc.(rc=%d)", error);
    return error;
  }
  const ssize_t got = read(file, text.get(), size);
  if (got != static_cast<ssize_t>(size)) {
    const int error = got < 0 ? errno : EIO;
    xtr_trace("XDFCI  F: Error on Read of YWKDDFC.TRM.(rc=%d)", error);
    return error;
  }
  return 0;
}

uint32_t xdfc_init() {
  xtr_trace("XDFCI  D: -> xdfc_init");
  char base[kFullPathSize];
  Text text;
  size_t size = 0;
  int error = 0;
  const int file = open_table(base);
  if (file < 0) {
    error = errno;
  } else {
    error = read_whole(file, text, size);
    if (close(file) != 0 && error == 0) {
      error = errno;
      xtr_trace("XDFCI  F: Error on Close of YWKDDFC.TRM.(rc=%d)", error);
    }
  }
  auto result = static_cast<uint32_t>(error);
  if (error == 0 && parse_path_table({text.get(), size}, base, xdfc_file_req) > XDFC_TABLE_SIZE) {
    xtr_trace("XDFCI  F: YWKDDFC.TRM is too large, %d", static_cast<int>(size));
    result = XDFC_TABLE_TOO_LARGE;
  }
  xtr_trace("XDFCI  D: <- xdfc_init");
  return result;
}

}  // namespace

uint32_t load_path_table() {
  if (loaded.load(std::memory_order_acquire)) return 0;
  int cancel_state;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_state);
  auto result = static_cast<uint32_t>(pthread_mutex_lock(&load_mutex));
  if (result == 0) {
    if (!loaded.load(std::memory_order_relaxed)) {
      result = xdfc_init();
      loaded.store(result == 0, std::memory_order_release);
    }
    pthread_mutex_unlock(&load_mutex);
  }
  pthread_setcancelstate(cancel_state, nullptr);
  return result;
}

}  // namespace plov::files
