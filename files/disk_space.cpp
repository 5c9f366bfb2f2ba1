// Free space of a file system.
#include <errno.h>
#include <stdint.h>
#include <sys/vfs.h>

#include <algorithm>

#include "files/hard_error.h"
#include "frame/call.h"
#include "xdfc.h"
#include "xtr.h"

namespace plov::files {
namespace {

constexpr uint64_t kKilobyte = 1024;
constexpr uint64_t kMostKilobytes = 0x200000;  // more have no number of bytes that callers can take
constexpr uint32_t kTooManyBytes = 0x7FFFFFFF;

// Kilobytes free on the file system of `path`, the superuser's reserve included; false after a recorded failure.
bool free_kilobytes(frame::Call& call, const char* path, uint64_t* kilobytes) {
  struct statfs status;
  if (statfs(path, &status) != 0) {
    const auto error = static_cast<uint32_t>(errno);
    return call.fail(xdfc_hard_err(kHardErrorStatfs, error, path), error);
  }
  xtr_trace("XDFC___D: units avail  - %d", static_cast<int>(status.f_bfree));
  xtr_trace("XDFC___D: bytes/sector - %d", static_cast<int>(status.f_bsize));
  const uint64_t units = status.f_bfree;
  const auto unit_size = static_cast<uint64_t>(status.f_bsize);
  // Small units are counted in 32 bits, beyond which the product starts anew; larger ones are not.
  *kilobytes =
      unit_size < kKilobyte ? static_cast<uint32_t>(units * unit_size) / kKilobyte : unit_size / kKilobyte * units;
  return true;
}

}  // namespace
}  // namespace plov::files

int32_t xdfc_disk_space(const char* path, uint32_t* bytes_free, uint32_t* comprc) {
  using namespace plov::files;
  plov::frame::Call call("xdfc_disk_space", "XDFCQDST: -> xdfc_disk_space", "XDFCQDST: <- xdfc_disk_space", comprc);
  if (call.text(path, XDFC_BAD_ARGUMENT_1) && call.writable(bytes_free, sizeof *bytes_free, XDFC_BAD_ARGUMENT_2)) {
    uint64_t kilobytes = 0;
    uint32_t bytes = 0;
    if (free_kilobytes(call, path, &kilobytes)) {
      // The last value that is multiplied, 0x200000, already gives one more than the cap.
      bytes = kilobytes <= kMostKilobytes ? static_cast<uint32_t>(kilobytes * kKilobyte) : kTooManyBytes;
      *bytes_free = bytes;
    }
    xtr_trace("XDFCQDSF: drive=%s, Byte free space=%ld, src=%X, crc=%X", path, static_cast<long>(bytes), call.sysrc(),
              call.comprc());
  }
  return call.leave();
}

int32_t xdfc_disk_space2(const char* path, int32_t* kb_free, uint32_t* comprc) {
  using namespace plov::files;
  plov::frame::Call call("xdfc_disk_space2", "XDFCQDST: -> xdfc_disk_space2", "XDFCQDST: <- xdfc_disk_space2", comprc);
  if (call.text(path, XDFC_BAD_ARGUMENT_1) && call.writable(kb_free, sizeof *kb_free, XDFC_BAD_ARGUMENT_2)) {
    uint64_t kilobytes = 0;
    int32_t shown = 0;
    if (free_kilobytes(call, path, &kilobytes)) {
      // A file system of more than 2 TiB is not one without space.
      shown = static_cast<int32_t>(std::min<uint64_t>(kilobytes, INT32_MAX));
      xtr_trace("XDFC___D: KiloBytes(Avail) - %d(x%x)", shown, shown);
      *kb_free = shown;
    }
    xtr_trace("XDFCQDSF: drive=%s, KB free space=%ld, src=%X, crc=%X", path, static_cast<long>(shown), call.sysrc(),
              call.comprc());
  }
  return call.leave();
}
