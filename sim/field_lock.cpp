// The lock of a field: advice between callers, kept in the shared array until somebody ends it.
#include "frame/call.h"
#include "sim/field.h"
#include "xsim.h"
#include "xtr.h"

namespace plov::sim {
namespace {

// Results of both: callers of the map know these functions to give 0 whatever happened, and test comprc.

uint32_t lock_field(uint32_t id) {
  Field field(id);
  uint32_t code = field.find();
  if (code == 0) code = field.take();
  if (code != 0) return code;
  if (!field.initialized()) {
    xtr_trace("XSIM   F:Requested SIM field has not been initialized");
    return XSIM_NOT_INITIALIZED;
  }
  if (field.locked()) {
    xtr_trace("XSIM   F:Requested SIM field is already locked");
    return XSIM_ALREADY_LOCKED;
  }
  field.set_flag(XSIM_LOCKED);
  return 0;
}

uint32_t unlock_field(uint32_t id) {
  Field field(id);
  uint32_t code = field.find();
  if (code == 0) code = field.take();
  if (code != 0) return code;
  if (!field.initialized()) {
    xtr_trace("XSIM   F: Requested SIM field has not been initialized");
    return XSIM_NOT_INITIALIZED;
  }
  if (!field.locked()) {
    xtr_trace("XSIM   F: Requested SIM field is not locked");
    return XSIM_NOT_LOCKED;
  }
  field.clear_lock();
  return 0;
}

}  // namespace
}  // namespace plov::sim

int32_t xsim_lock(uint32_t id, uint32_t* comprc) {
  using namespace plov::sim;
  plov::frame::Call call("xsim_lock", "XSIM   T: -> xsim_lock", "XSIM   T: <- xsim_lock", comprc);
  if (call.ok() && map_ready(call)) call.set_comprc(lock_field(id));
  return call.leave();
}

int32_t xsim_unlock(uint32_t id, uint32_t* comprc) {
  using namespace plov::sim;
  plov::frame::Call call("xsim_unlock", "XSIM   T: -> xsim_unlock", "XSIM   T: <- xsim_unlock", comprc);
  if (call.ok() && map_ready(call)) call.set_comprc(unlock_field(id));
  return call.leave();
}
