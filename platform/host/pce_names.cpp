// Names that the process-control kernel knows: programs of processes, the directory for temporary files.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "pce.h"
#include "platform/host/pce_failure.h"
#include "xtr.h"

namespace {

// The beginning of a file of /proc up to its first NUL or line feed. 0, or the error.
int read_name(uint32_t pid, const char* file, char* name, uint32_t size) {
  char path[48];
  snprintf(path, sizeof path, "/proc/%u/%s", pid, file);
  const int descriptor = open(path, O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) return errno;
  ssize_t count;
  do count = read(descriptor, name, size - 1);
  while (count < 0 && errno == EINTR);
  const int error = count < 0 ? errno : 0;
  close(descriptor);
  name[count < 0 ? 0 : count] = '\0';
  name[strcspn(name, "\n")] = '\0';
  return error;
}

// The directory, or why there is none. getenv neither locks nor allocates; a program that runs with the rights of
// another user does not take the directory from its caller. A relative name would move with the working directory,
// which the crash path changes.
int temporary_directory(char* directory, uint32_t size) {
  const char* value = secure_getenv("PCE_TEMPDIR");
  if (!value || *value != '/') value = "/tmp/";
  const size_t length = strlen(value);
  const bool slash = value[length - 1] == '/';
  if (length + !slash >= size) return ENAMETOOLONG;
  memcpy(directory, value, length + 1);
  if (!slash) memcpy(directory + length, "/", 2);
  return 0;
}

}  // namespace

int32_t pce_get_progname(pce_call_record* record, uint32_t pid, char* name, uint32_t size) {
  if (size == 0) return plov::host::system_failure(record, EINVAL);
  *name = '\0';
  int error = read_name(pid, "cmdline", name, size);
  // A process that ends, and a kernel thread, has no command line but still a name.
  if (error == 0 && *name == '\0') error = read_name(pid, "comm", name, size);
  if (error == 0) return 0;
  xtr_trace("PCE____F:    pce_get_progname: No name of process %u. Error is %d", pid, error);
  return plov::host::system_failure(record, error);
}

int32_t pce_find_tempdir(pce_call_record* record, char* directory, uint32_t size) {
  const int error = temporary_directory(directory, size);
  if (error == 0) return 0;
  xtr_trace("PCE____F:    pce_find_tempdir: PCE_TEMPDIR is longer than %u characters", size);
  return plov::host::system_failure(record, error);
}

int32_t pce_sig_tempdir(char* directory, uint32_t size) {
  return temporary_directory(directory, size);
}
