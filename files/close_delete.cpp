// The ends of a stream and of a file.
#include <stdio.h>
#include <unistd.h>

#include "files/full_path.h"
#include "files/hard_error.h"
#include "files/stream_error.h"
#include "frame/call.h"
#include "xdfc.h"
#include "xtr.h"

int32_t xdfc_close_file(FILE* handle, uint32_t* comprc) {
  plov::frame::Call call("xdfc_close_file", "XDFCCF T: -> xdfc_close_file", "XDFCCF T: <- xdfc_close_file", comprc);
  const auto address = reinterpret_cast<uintptr_t>(handle);
  if (call.writable(handle, sizeof *handle, XDFC_BAD_ARGUMENT_1)) {
    errno = 0;
    if (fclose(handle) != 0) call.refuse(plov::files::stream_error(errno));
  }
  if (call.comprc_usable())
    xtr_trace("XDFCCF F: filehandle=%p, src=%X, crc=%X", reinterpret_cast<void*>(address), call.sysrc(), call.comprc());
  return call.leave();
}

int32_t xdfc_delete_file(const char* name, uint32_t* comprc) {
  using namespace plov::files;
  plov::frame::Call call("xdfc_delete_file", "XDFCDF T: -> xdfc_delete_file", "XDFCDF T: <- xdfc_delete_file", comprc);
  char path[kFullPathSize];
  if (call.text(name, XDFC_BAD_ARGUMENT_1)) {
    xtr_trace("XDFCDF F: filename=[%s]", name);
    if (resolve(call, name, path) && unlink(path) != 0) {
      const auto error = static_cast<uint32_t>(errno);
      call.fail(xdfc_hard_err(kHardErrorUnlink, error, path), error);
    }
  }
  if (call.comprc_usable()) xtr_trace("XDFCDF F: src=%X, crc=%X", call.sysrc(), call.comprc());
  return call.leave();
}
