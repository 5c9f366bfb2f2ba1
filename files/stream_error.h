// Reason codes of failed stream operations.
#ifndef PLOV_FILES_STREAM_ERROR_H
#define PLOV_FILES_STREAM_ERROR_H

#include <errno.h>
#include <stdint.h>

#include "xdfc.h"

namespace plov::files {

// The code of a failure whose errno is `error`. A stream's error flag outlives errno: when the operation left none
// (clear errno before it), the failure still has a code.
inline uint32_t stream_error(int error) {
  return static_cast<uint32_t>(error != 0 ? error : EIO);
}

// The same for writing, where a full disk has a code of its own.
inline uint32_t write_error(int error) {
  return error == ENOSPC ? XDFC_DISK_FULL : stream_error(error);
}

}  // namespace plov::files

#endif
