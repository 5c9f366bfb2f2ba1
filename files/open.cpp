// Opening by search.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "files/full_path.h"
#include "files/hard_error.h"
#include "frame/call.h"
#include "xdfc.h"
#include "xtr.h"

namespace plov::files {
namespace {

#if PLOV_ILP32
static_assert(sizeof(FILE) == 148, "the size that callers of xdfc_search_file_open provide for");
#endif

constexpr int kOpenAttempts = 30;
constexpr useconds_t kBusyPause = 1000;

// `*error` is 0 or the errno of the last attempt.
FILE* open_stream(const char* path, const char* mode, int* error) {
  FILE* stream = nullptr;
  for (int attempt = 1;; ++attempt) {
    errno = 0;
    stream = fopen(path, mode);
    *error = stream ? 0 : errno;
    if (*error != EBUSY || attempt == kOpenAttempts) break;
    usleep(kBusyPause);
  }
  if (stream) {
    const int rc = fcntl(fileno(stream), F_SETFD, FD_CLOEXEC);
    if (rc != 0) xtr_trace("XDFCSFOF: Error on fcntl. iRc=%d, errno=%d", rc, errno);
  }
  xtr_trace("XDFCSFOF: Opening file [%s], rc=%lx, file ptr=%p, errno=%d", path, static_cast<unsigned long>(*error),
            static_cast<void*>(stream), *error);
  return stream;
}

void open_with_mode(frame::Call& call, const char* name, const char* mode, FILE** handle) {
  char path[kFullPathSize];
  if (!resolve(call, name, path)) return;
  int error;
  *handle = open_stream(path, mode, &error);
  if (error == 0) return;
  const auto code = static_cast<uint32_t>(error);
  // A log file that cannot be opened must not be reported in the log.
  const bool quiet = error == ENOENT || strstr(name, ".log");
  call.fail(quiet ? frame::kRefused : xdfc_hard_err(kHardErrorOpen, code, path), code);
}

void open_by_flags(frame::Call& call, const char* name, bool read_only, uint32_t uOpenFlag, FILE** handle,
                   uint32_t* action) {
  char path[kFullPathSize];
  if (!resolve(call, name, path)) return;
  const bool exists = access(path, F_OK) == 0;
  const bool create = (uOpenFlag & XDFC_DE_CREAT) != 0;
  if (exists && (uOpenFlag & (XDFC_E_OPEN | XDFC_E_REPLACE)) == 0) {
    xtr_trace("XDFCSFOF: uOpenFlag=0X%X file exists but did not specify XDFC_E_OPEN or XDFC_E_REPLACE", uOpenFlag);
    call.refuse(XDFC_EXISTS);
    return;
  }
  if (!exists && !create) {
    xtr_trace("XDFCSFOF: uOpenFlag=0X%X file did not exist and did not specify XDFC_DE_CREAT", uOpenFlag);
    call.refuse(XDFC_NO_ENTRY);
    return;
  }
  xtr_trace("XDFCSFOF: uOpenFlag=0X%X exists=%d", uOpenFlag, exists);

  // XDFC_E_REPLACE alone does not truncate, and XDFC_E_OPEN wins over it. Callers pass both and count on their
  // contents: do not repair.
  const bool truncate = create && (!exists || (uOpenFlag & XDFC_E_OPEN) == 0);
  const char* const mode = truncate ? (read_only ? "w" : "w+") : (read_only ? "r" : "r+");
  xtr_trace("XDFCSFOF: open flags [%s] for file [%s]", mode, path);
  uint32_t code = 0;
  const int32_t result = xdfc_search_file_open2(name, mode, handle, &code);
  if (result == 0)
    *action = create && !exists ? XDFC_ACTION_CREATED : XDFC_ACTION_OPENED;
  else
    call.fail(static_cast<uint32_t>(result), code);
}

}  // namespace
}  // namespace plov::files

int32_t xdfc_search_file_open(const char* name, uint32_t /*reserved1*/, int32_t access, uint32_t uOpenFlag,
                              uint32_t /*reserved2*/, FILE** handle, uint32_t* action, uint32_t* comprc) {
  plov::frame::Call call("xdfc_search_file_open", "XDFCSFOT: -> xdfc_search_file_open",
                         "XDFCSFOT: <- xdfc_search_file_open", comprc);
  // The probe is of a whole stream, not of a pointer to one. Callers keep the variable inside a larger record.
  if (call.text(name, XDFC_BAD_ARGUMENT_1) && call.writable(handle, sizeof(FILE), XDFC_BAD_ARGUMENT_2) &&
      call.writable(action, sizeof *action, XDFC_BAD_ARGUMENT_3))
    plov::files::open_by_flags(call, name, (access & XDFC_ACCESS_READ_ONLY) != 0, uOpenFlag, handle, action);
  return call.leave();
}

int32_t xdfc_search_file_open2(const char* name, const char* mode, FILE** handle, uint32_t* comprc) {
  plov::frame::Call call("xdfc_search_file_open2", "XDFCSFOT: -> xdfc_search_file_open2",
                         "XDFCSFOT: <- xdfc_search_file_open2", comprc);
  if (call.text(name, XDFC_BAD_ARGUMENT_1) && call.text(mode, XDFC_BAD_ARGUMENT_2) &&
      call.writable(handle, sizeof(FILE*), XDFC_BAD_ARGUMENT_3))
    plov::files::open_with_mode(call, name, mode, handle);
  return call.leave();
}
