// Reading and writing at a stream's own position.
#include <stdio.h>

#include "files/stream_error.h"
#include "frame/call.h"
#include "xdfc.h"
#include "xtr.h"

int32_t xdfc_read(void* buf, size_t size, size_t count, FILE* handle, int32_t* done, uint32_t* comprc) {
  plov::frame::Call call("xdfc_read", "XDFCRD T: -> xdfc_read", "XDFCRD T: <- xdfc_read", comprc);
  if (call.writable(buf, size, XDFC_BAD_ARGUMENT_1) && call.writable(handle, sizeof *handle, XDFC_BAD_ARGUMENT_2) &&
      call.writable(done, sizeof *done, XDFC_BAD_ARGUMENT_3)) {
    errno = 0;
    const size_t items = fread(buf, size, count, handle);
    const int error = errno;
    *done = static_cast<int32_t>(items);
    if (items < count && ferror(handle)) {
      xtr_trace("XDFCRD F: fread error rc=%d", error);
      call.refuse(plov::files::stream_error(error));
    } else if (items < count && feof(handle)) {
      call.refuse(XDFC_END_OF_FILE);
    }
  }
  return call.leave();
}

int32_t xdfc_write(const void* buf, size_t size, size_t count, FILE* handle, int32_t* done, uint32_t* comprc) {
  plov::frame::Call call("xdfc_write", "XDFCWR T: -> xdfc_write", "XDFCWR T: <- xdfc_write", comprc);
  if (call.readable(buf, size, XDFC_BAD_ARGUMENT_1) && call.writable(handle, sizeof *handle, XDFC_BAD_ARGUMENT_2) &&
      call.writable(done, sizeof *done, XDFC_BAD_ARGUMENT_3)) {
    errno = 0;
    const size_t items = fwrite(buf, size, count, handle);
    const int error = errno;
    *done = static_cast<int32_t>(items);
    if (items < count && ferror(handle)) {
      if (error != ENOSPC) xtr_trace("XDFCWR F: fwrite error rc=%d", error);
      call.refuse(plov::files::write_error(error));
    }
  }
  return call.leave();
}
