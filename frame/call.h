// The frame of an exported call: entry and exit trace, the call record, the probes of the caller's pointers, the two
// return codes.
//
//   int32_t xdfc_close_file(FILE* handle, uint32_t* comprc) {
//     frame::Call call("xdfc_close_file", "XDFCCF T: -> xdfc_close_file", "XDFCCF T: <- xdfc_close_file", comprc);
//     if (call.writable(handle, sizeof *handle, XDFC_BAD_ARGUMENT_1)) { ...work, call.fail(2, errno)... }
//     return call.leave();
//   }
#ifndef PLOV_FRAME_CALL_H
#define PLOV_FRAME_CALL_H

#include <stddef.h>
#include <stdint.h>

#include "pce.h"
#include "plov_api.h"

namespace plov::frame {

// Grades of `sysrc`. The larger wins.
inline constexpr uint32_t kUnusableComprc = 1;
inline constexpr uint32_t kRefused = 2;
inline constexpr uint32_t kSystemFailure = 8;

// Where an exported call's inner functions leave the reason of the first failure. The platform's event calls read it.
using CallRecord = pce_call_record;

class Call {
 public:
  // Traces `entry` and probes `comprc`. When that is unusable every later step is skipped and leave() returns 1,
  // nothing written. `entry` and `exit`, which are whole trace lines, must outlive the call.
  Call(const char* name, const char* entry, const char* exit, uint32_t* comprc);
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  // No failure so far.
  bool ok() const { return record_.sysrc == 0; }
  bool comprc_usable() const { return usable_; }

  // Probes, made only while ok(). A failed one records `code` and grade 2. Writable means readable too.
  bool writable(const void* address, size_t size, uint32_t code);
  bool readable(const void* address, size_t size, uint32_t code);
  bool text(const char* string, uint32_t code, uint32_t* length = nullptr);

  // Records a failure: the first code stays, the larger grade wins. Returns false, so that `return call.fail(...)`
  // reads well.
  bool fail(uint32_t grade, uint32_t code);
  bool refuse(uint32_t code) { return fail(kRefused, code); }

  // A reason code beside success, or a result that is not a failure of this call's own.
  void set_comprc(uint32_t code) { record_.comprc = code; }
  void set_sysrc(uint32_t sysrc) { record_.sysrc = sysrc; }

  uint32_t comprc() const { return record_.comprc; }
  uint32_t sysrc() const { return record_.sysrc; }
  CallRecord& record() { return record_; }

  // Writes the reason code, traces the two codes when `sysrc` is not 0, traces the exit and returns `sysrc`. Called
  // once, last. The codes stand under `tag` (seven characters), or under that of the entry line.
  int32_t leave(const char* tag = nullptr);

 private:
  const char* entry_;
  const char* exit_;
  uint32_t* comprc_;
  bool usable_;
  CallRecord record_;
};

}  // namespace plov::frame

#endif
