// Trimming as Java calls it: the request's first argument is a byte array with the name of the destination file.
#include <errno.h>

#include "frame/memory.h"
#include "log/maintain/trim.h"
#include "xlog.h"
#include "xnb.h"
#include "xtr.h"

namespace plov::log {
namespace {

// The name with its NUL; empty with a status when it cannot be had.
frame::Owned<char> take_name(xnb_request_t request, int32_t* status) {
  frame::Owned<char> name;
  xnb_object array = nullptr;
  uint32_t length = 0;
  *status = xnbGetObjectArgument(request, 0, &array);
  if (*status == 0) *status = xnbGetArrayLength(array, &length);
  if (*status == 0) {
    name.reset(static_cast<char*>(PLOV_MALLOC(size_t{length} + 1)));
    *status = name ? xnbGetByteArrayElements(array, 0, length, name.get()) : ENOMEM;
    if (name) name.get()[length] = '\0';
  }
  if (array) xnbReleaseObjectReference(array);
  if (*status == 0) return name;
  xtr_trace("XLOGTRMD: got sysrc = %i", *status);
  return nullptr;
}

int32_t trim_for_java(xnb_request_t request) {
  int32_t status = 0;
  const frame::Owned<char> name = take_name(request, &status);
  if (!name) return status;
  const TrimResult result = trim_log(name.get());
  if (result.message) {
    xnbSetNativeFunctionError(request, result.message);
    xnbSetReturnCodes(request, result.sysrc, result.comprc);
  }
  return result.sysrc;
}

}  // namespace
}  // namespace plov::log

// The date is that of the interface, which the readers of old traces know it by.
int32_t xlogTrimLog(struct xnb_request* request) {
  xtr_trace("XLOGTRMF: -> xlogTrimLog 066 - 00 Jun  5 2007 16:06:45");
  const int32_t rc = plov::log::trim_for_java(request);
  xtr_trace("XLOGTRMF: <- xlogTrimLog: RC=%d", rc);
  return xnbSetIntResult(request, rc);
}
