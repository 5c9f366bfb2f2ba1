// The map as this process has it attached. Everything in shared memory may be changed by anybody at any time: sizes and
// offsets are checked against the attached segments at each use.
#ifndef PLOV_SIM_MAP_H
#define PLOV_SIM_MAP_H

#include <stddef.h>
#include <stdint.h>

#include "xsim.h"

namespace plov::sim {

// Where a field id points.
struct Place {
  int pass;
  uint32_t slot;
  uint32_t index;  // what is compared with the pass's field count
};
inline Place place_of(uint32_t id) {
  if (id >= XSIM_FIRST_QUEN_ID) return {XSIM_QUEN, id - XSIM_FIRST_QUEN_ID, id - XSIM_FIRST_QUEN_ID};
  return {XSIM_TOLVANE, id - 1, id};
}

// Keys of a pass's two segments.
inline constexpr uint32_t kArrayKeys[2] = {XSIM_KEY_TOLVANE_ARRAY, XSIM_KEY_QUEN_ARRAY};
inline constexpr uint32_t kDataKeys[2] = {XSIM_KEY_TOLVANE_DATA, XSIM_KEY_QUEN_DATA};

// One attached segment, given back unless it was kept.
class Segment {
 public:
  Segment() = default;
  ~Segment() { detach(); }
  Segment(const Segment&) = delete;
  Segment& operator=(const Segment&) = delete;

  // False with errno set. A segment of another key than the one asked for is none of ours: EINVAL.
  bool attach(int32_t id, uint32_t key);
  void detach();
  void* keep();

  void* address() const { return address_; }
  size_t size() const { return size_; }

 private:
  void* address_ = nullptr;
  size_t size_ = 0;
};

// A pass's two segments. `entries` counts the whole entries that the array holds.
struct Pass {
  xsim_entry* array;
  size_t entries;
  uint8_t* data;
  size_t data_size;
};

inline bool header_attached() {
  return __atomic_load_n(&pXsim_ptr, __ATOMIC_ACQUIRE) != nullptr;
}

inline bool loaded(int pass) {
  return __atomic_load_n(&pXsim_ptr->pass[pass].loaded, __ATOMIC_ACQUIRE) != 0;
}

// Makes an attached pair of segments this process's pass. Under the process mutex.
void publish(int pass, Segment& array, Segment& data);

// The first step of every operation. 0: the place is in `*found`, attached. Else XSIM_NOT_LOADED, XSIM_UNKNOWN_FIELD,
// XSIM_NO_ARRAY or XSIM_NO_DATA_AREA.
uint32_t xsim_check(const Place& place, const Pass** found);

}  // namespace plov::sim

#endif
