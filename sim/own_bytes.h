// The library's own copy of a caller's bytes. The map's semaphore is held only over memory that cannot fault: what a
// caller hands over is copied before it is taken, and what a caller gets after it was given back.
#ifndef PLOV_SIM_OWN_BYTES_H
#define PLOV_SIM_OWN_BYTES_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "frame/caller_memory.h"
#include "frame/memory.h"
#include "xsim.h"

namespace plov::sim {

class OwnBytes {
 public:
  OwnBytes() = default;
  OwnBytes(const OwnBytes&) = delete;
  OwnBytes& operator=(const OwnBytes&) = delete;

  uint8_t* data() { return large_ ? large_.get() : small_; }
  const uint8_t* data() const { return large_ ? large_.get() : small_; }
  size_t size() const { return size_; }

  // Copies the caller's bytes. 0, XSIM_BAD_POINTER or XSIM_NO_MEMORY; the pointer's fault wins.
  uint32_t take(const void* from, size_t size) {
    if (size <= sizeof small_) {
      size_ = size;
      return frame::take_from_caller(small_, from, size, frame::Access::read) ? 0 : XSIM_BAD_POINTER;
    }
    uint32_t scratch;
    if (frame::probe(from, size, frame::Access::read, &scratch) != 0) return XSIM_BAD_POINTER;
    if (!reserve(size)) return XSIM_NO_MEMORY;
    return frame::copy_from_caller(data(), from, size) ? 0 : XSIM_BAD_POINTER;
  }

  // Makes room for what the caller is to get in `to`, which is probed.
  uint32_t prepare(void* to, size_t size) {
    uint32_t scratch;
    if (frame::probe(to, size, frame::Access::write, &scratch) != 0) return XSIM_BAD_POINTER;
    return reserve(size) ? 0 : XSIM_NO_MEMORY;
  }

  // Hands it over. The probe has touched all of what is no longer than its reach.
  bool give(void* to) const {
    if (size_ > kProbed) return frame::copy_to_caller(to, data(), size_);
    memcpy(to, data(), size_);
    return true;
  }

 private:
  static constexpr size_t kProbed = 4;

  bool reserve(size_t size) {
    size_ = size;
    if (size > sizeof small_) large_.reset(static_cast<uint8_t*>(PLOV_MALLOC(size)));
    return size <= sizeof small_ || large_;
  }

  size_t size_ = 0;
  uint8_t small_[256];
  frame::Owned<uint8_t> large_;
};

}  // namespace plov::sim

#endif
