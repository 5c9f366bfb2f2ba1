#include "sim/field.h"

#include "sim/load.h"
#include "sim/semaphore.h"
#include "xdfc.h"
#include "xtr.h"

namespace plov::sim {

bool map_ready(frame::Call& call) {
  if (header_attached()) return true;
  uint32_t code = 0;
  const int32_t result = init(&code);
  return result == 0 || call.fail(static_cast<uint32_t>(result), code);
}

uint32_t Field::find() {
  if (const uint32_t code = xsim_check(place_, &pass_); code != 0) return code;
  entry_ = &pass_->array[place_.slot];
  size_ = __atomic_load_n(&entry_->size, __ATOMIC_RELAXED);
  offset_ = __atomic_load_n(&entry_->offset, __ATOMIC_RELAXED);
  permanent_offset_ = __atomic_load_n(&entry_->permanent_offset, __ATOMIC_RELAXED);
  return 0;
}

uint32_t Field::take() {
  if (xsim_getsem() != 0) return XSIM_NO_SEMAPHORE;
  semaphore_held_ = true;
  return 0;
}

void Field::xsim_exit() {
  xtr_trace("XSIM   D: -> xsim_exit");
  close_permanent();
  if (semaphore_held_) xsim_unlock_buf();
  semaphore_held_ = false;
  xtr_trace("XSIM   D: <- xsim_exit");
}

}  // namespace plov::sim
