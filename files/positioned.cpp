// Reading and writing at a given position.
#include <stdio.h>

#include "files/stream_error.h"
#include "frame/call.h"
#include "xdfc.h"
#include "xtr.h"

namespace plov::files {
namespace {

// Result 0, or the errno of the failed seek. Pending output is written first: its failure is one of the seek.
int move_to(FILE* handle, int32_t refpoint, long offset) {
  int origin = SEEK_SET;
  if (refpoint == XDFC_FROM_CURRENT)
    origin = SEEK_CUR;
  else if (refpoint == XDFC_FROM_END)
    origin = SEEK_END;
  else if (refpoint != XDFC_FROM_BEGINNING)  // the reader's tag stands in the writer's line too: searches know it so
    xtr_trace("XDFCRR F: invalid Reference Point of %d, using beginning of file", refpoint);
  errno = 0;
  return fseek(handle, offset, origin) == 0 ? 0 : static_cast<int>(stream_error(errno));
}

unsigned low_word(const void* address) {
  return static_cast<unsigned>(reinterpret_cast<uintptr_t>(address));
}

void read_at(frame::Call& call, FILE* handle, void* buf, size_t length, int32_t refpoint, long offset, uint32_t* done,
             uint32_t* newpos) {
  if (const int failure = move_to(handle, refpoint, offset); failure != 0) {
    xtr_trace("XDFCRR F: SetFilePtr error, errno is %d", failure);
    xtr_trace("XDFCRR F: fh=%X, rp=%d, offset=%d, np=%d", low_word(handle), refpoint, static_cast<int>(offset),
              *newpos);
    call.refuse(static_cast<uint32_t>(failure));
    return;
  }
  *newpos = static_cast<uint32_t>(ftello(handle));
  errno = 0;
  const size_t count = fread(buf, 1, length, handle);
  const int error = errno;
  *done = static_cast<uint32_t>(count);
  *newpos += *done;
  if (count < length && ferror(handle)) {
    xtr_trace("XDFCRR F: fread error rc=%d", error);
    call.refuse(stream_error(error));
  } else if (count == 0 && feof(handle)) {
    xtr_trace("XDFCRR F: End of file reached");
  }
}

void write_at(frame::Call& call, FILE* handle, const void* buf, size_t length, int32_t refpoint, long offset,
              uint32_t* done, uint32_t* newpos) {
  if (const int failure = move_to(handle, refpoint, offset); failure != 0) {
    xtr_trace("XDFCRW F: SetFilePtr error, errno is %d", failure);
    xtr_trace("XDFCRW F: fh=%X, rp=%d, offset=%d, np=%d", low_word(handle), refpoint, static_cast<int>(offset),
              *newpos);
    call.refuse(static_cast<uint32_t>(failure));
    return;
  }
  *newpos = static_cast<uint32_t>(ftello(handle));
  errno = 0;
  const size_t count = fwrite(buf, 1, length, handle);
  const int error = errno;
  *done = static_cast<uint32_t>(count);
  *newpos += *done;
  if (count < length && ferror(handle)) {
    // The reader's tag, as above.
    if (error != ENOSPC) xtr_trace("XDFCRR F: fwrite error rc=%d", error);
    call.refuse(write_error(error));
  }
}

}  // namespace
}  // namespace plov::files

int32_t xdfc_random_read(FILE* handle, void* buf, size_t length, int32_t refpoint, long offset, uint32_t* done,
                         uint32_t* newpos, uint32_t* comprc) {
  plov::frame::Call call("xdfc_random_read", "XDFCRR T: -> xdfc_random_read", "XDFCRR T: <- xdfc_random_read", comprc);
  if (call.writable(handle, sizeof *handle, XDFC_BAD_ARGUMENT_1) && call.writable(buf, length, XDFC_BAD_ARGUMENT_2) &&
      call.writable(done, sizeof *done, XDFC_BAD_ARGUMENT_3) &&
      call.writable(newpos, sizeof *newpos, XDFC_BAD_ARGUMENT_4))
    plov::files::read_at(call, handle, buf, length, refpoint, offset, done, newpos);
  return call.leave();
}

int32_t xdfc_random_write(FILE* handle, const void* buf, size_t length, int32_t refpoint, long offset, uint32_t* done,
                          uint32_t* newpos, uint32_t* comprc) {
  plov::frame::Call call("xdfc_random_write", "XDFCRW T: -> xdfc_random_write", "XDFCRW T: <- xdfc_random_write",
                         comprc);
  if (call.writable(handle, sizeof *handle, XDFC_BAD_ARGUMENT_1) && call.readable(buf, length, XDFC_BAD_ARGUMENT_2) &&
      call.writable(done, sizeof *done, XDFC_BAD_ARGUMENT_3) &&
      call.writable(newpos, sizeof *newpos, XDFC_BAD_ARGUMENT_4))
    plov::files::write_at(call, handle, buf, length, refpoint, offset, done, newpos);
  return call.leave();
}
