// One operation on one field, from the look-up to the release of whatever it took.
#ifndef PLOV_SIM_FIELD_H
#define PLOV_SIM_FIELD_H

#include <stdint.h>
#include <stdio.h>

#include "frame/call.h"
#include "sim/map.h"

namespace plov::sim {

// The map is there, or the call has failed as its loading did.
bool map_ready(frame::Call& call);

class Field {
 public:
  explicit Field(uint32_t id) : place_(place_of(id)) {}
  Field(const Field&) = delete;
  Field& operator=(const Field&) = delete;
  ~Field() { xsim_exit(); }

  // Looks the field up: 0 or the code. Size and places are read here, once: they never change after loading, and
  // whoever changes them all the same changes nothing that is in use.
  uint32_t find();

  // Takes the semaphore: 0 or XSIM_NO_SEMAPHORE.
  uint32_t take();

  // Closes the permanent file and releases the semaphore, as far as they are held. At the latest, and normally, at the
  // object's end.
  void xsim_exit();

  uint32_t size() const { return size_; }
  uint8_t* value() const { return pass_->data + offset_; }

  // Whether the bytes from `offset` of the field on lie in the data area.
  bool in_area(uint64_t offset, uint64_t length) const { return offset_ + offset + length <= pass_->data_size; }

  // With the semaphore held, but for the storage. A field whose value leaves the data area has no storage.
  bool initialized() const { return (flags() & XSIM_INITIALIZED) != 0 && in_area(0, size_); }
  bool locked() const { return (flags() & XSIM_LOCKED) != 0; }
  void set_flag(uint8_t flag) { store_flags(flags() | flag); }
  void clear_lock() { store_flags(flags() & ~XSIM_LOCKED); }
  bool permanent() const { return (type() & XSIM_STORAGE_BITS) == XSIM_PERMANENT; }
  bool persistent() const { return permanent() && (type() & XSIM_KEEP_BITS) == XSIM_PERSISTENT; }

  // The permanent file, left open: 0, XSIM_NO_PERMANENT_FILE, XSIM_SEEK_FAILED, and XSIM_READ_FAILED or
  // XSIM_WRITE_FAILED. Written bytes have left the stream's buffer.
  uint32_t read_permanent(uint8_t* bytes);
  uint32_t xsim_internal_file_write(const uint8_t* bytes, uint32_t offset, uint32_t length);
  uint32_t close_permanent();  // 0 or XSIM_CLOSE_FAILED

 private:
  uint32_t flags() const { return __atomic_load_n(&entry_->flags, __ATOMIC_RELAXED); }
  void store_flags(uint32_t flags) { __atomic_store_n(&entry_->flags, static_cast<uint8_t>(flags), __ATOMIC_RELAXED); }
  uint32_t type() const { return flags() >> XSIM_TYPE_SHIFT; }
  bool seek(uint32_t offset);

  const Place place_;
  const Pass* pass_ = nullptr;
  xsim_entry* entry_ = nullptr;
  uint32_t size_ = 0, permanent_offset_ = 0;
  uint64_t offset_ = 0;
  bool semaphore_held_ = false;
  FILE* file_ = nullptr;
};

}  // namespace plov::sim

#endif
