// A field's value in its pass's permanent file.
#include <errno.h>

#include "sim/field.h"
#include "xdfc.h"
#include "xtr.h"

namespace plov::sim {
namespace {

constexpr const char* kNames[2] = {"ywkzspr.dat", "kvdzspr.dat"};

}  // namespace

bool Field::seek(uint32_t offset) {
  return fseeko(file_, static_cast<off_t>(permanent_offset_) + offset, SEEK_SET) == 0;
}

uint32_t Field::read_permanent(uint8_t* bytes) {
  uint32_t code;
  int32_t done;
  if (xdfc_search_file_open2(kNames[place_.pass], "r", &file_, &code) != 0) return XSIM_NO_PERMANENT_FILE;
  if (!seek(0)) return XSIM_SEEK_FAILED;
  return xdfc_read(bytes, 1, size_, file_, &done, &code) == 0 ? 0 : XSIM_READ_FAILED;
}

uint32_t Field::xsim_internal_file_write(const uint8_t* bytes, uint32_t offset, uint32_t length) {
  uint32_t code;
  int32_t done;
  if (xdfc_search_file_open2(kNames[place_.pass], "r+", &file_, &code) != 0) return XSIM_NO_PERMANENT_FILE;
  if (!seek(offset)) {
    xtr_trace("XSIM   F: xsim_internal_file_write error,errno is %d", errno);
    return XSIM_SEEK_FAILED;
  }
  // stdio reports a full disk at the flush.
  return xdfc_write(bytes, 1, length, file_, &done, &code) == 0 && fflush(file_) == 0 ? 0 : XSIM_WRITE_FAILED;
}

uint32_t Field::close_permanent() {
  uint32_t code = 0;
  if (!file_) return 0;
  const int32_t result = xdfc_close_file(file_, &code);
  file_ = nullptr;
  if (result == 0) return 0;
  xtr_trace("XSIM   F: xdfc_close_file error %d", code);
  return XSIM_CLOSE_FAILED;
}

}  // namespace plov::sim
