// A file's size and date.
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "files/full_path.h"
#include "files/hard_error.h"
#include "frame/call.h"
#include "xdfc.h"
#include "xtr.h"

namespace plov::files {
namespace {

// Without O_NONBLOCK a FIFO under the file's name would hang its asker.
constexpr int kLookOnly = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

void query_size(frame::Call& call, const char* name, uint32_t* size) {
  char path[kFullPathSize];
  if (!resolve(call, name, path)) return;
  const int file = open(path, kLookOnly);
  if (file < 0) {
    const int error = errno;
    xtr_trace("XDFCI  F: Error on Open of [%s].(errno = %d)", path, error);
    call.refuse(static_cast<uint32_t>(error));
    return;
  }
  struct stat status;
  if (const int rc = fstat(file, &status); rc == 0) {
    *size = static_cast<uint32_t>(status.st_size);
  } else {
    const int error = errno;
    xtr_trace("XDFCI  F: Error on fstat of [%S].(rc=%d,errno=%d )", path, rc, error);
    call.fail(xdfc_hard_err(kHardErrorSize, static_cast<uint32_t>(error), path), static_cast<uint32_t>(error));
  }
  close(file);
}

bool local_date(time_t time, xdfc_file_date* date) {
  struct tm local;
  if (!localtime_r(&time, &local)) return false;
  date->year = static_cast<uint16_t>(local.tm_year + 1900);
  date->month = static_cast<uint8_t>(local.tm_mon + 1);
  date->day = static_cast<uint8_t>(local.tm_mday);
  date->hour = static_cast<uint8_t>(local.tm_hour);
  date->minute = static_cast<uint8_t>(local.tm_min);
  date->second = static_cast<uint8_t>(local.tm_sec);
  date->reserved = 0;
  return true;
}

void query_date(frame::Call& call, const char* name, xdfc_file_date* date) {
  char path[kFullPathSize];
  if (!resolve(call, name, path)) return;
  const int file = open(path, kLookOnly);
  if (file < 0) {
    const int error = errno;
    xtr_trace("XDFCI  F: Error on Open of [%s].(errno = %d)", path, error);
    call.fail(xdfc_hard_err(kHardErrorDate, static_cast<uint32_t>(error), path), static_cast<uint32_t>(error));
    return;
  }
  struct stat status;
  if (fstat(file, &status) != 0) {
    const int error = errno;
    xtr_trace("XDFCI  F: Error on fstat of [%S].(errno = %d )", path, error);
    call.fail(xdfc_hard_err(kHardErrorDate, static_cast<uint32_t>(error), path), static_cast<uint32_t>(error));
  } else if (!local_date(status.st_ctime, date)) {
    call.refuse(EOVERFLOW);
  }
  close(file);
}

}  // namespace
}  // namespace plov::files

int32_t xdfc_query_file_size(const char* name, uint32_t* size, uint32_t* comprc) {
  plov::frame::Call call("xdfc_query_file_size", "XDFCI  T: -> xdfc_query_file_size",
                         "XDFCI  T: <- xdfc_query_file_size", comprc);
  if (call.text(name, XDFC_BAD_ARGUMENT_1) && call.writable(size, sizeof *size, XDFC_BAD_ARGUMENT_2))
    plov::files::query_size(call, name, size);
  return call.leave();
}

int32_t xdfc_query_file_date(const char* name, xdfc_file_date* date, uint32_t* comprc) {
  plov::frame::Call call("xdfc_query_file_date", "XDFCI  T: -> xdfc_query_file_date",
                         "XDFCI  T: <- xdfc_query_file_date", comprc);
  if (call.text(name, XDFC_BAD_ARGUMENT_1) && call.writable(date, sizeof *date, XDFC_BAD_ARGUMENT_2))
    plov::files::query_date(call, name, date);
  return call.leave();
}
