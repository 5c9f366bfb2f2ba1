// The copy of a field that stands in the permanent file, read and written beside the shared value. The result of both
// calls is 0 once the map is there; their callers test comprc.
#include "frame/call.h"
#include "sim/field.h"
#include "sim/own_bytes.h"
#include "xsim.h"

namespace plov::sim {
namespace {

uint32_t read_copy(uint32_t id, void* buffer) {
  OwnBytes value;
  uint32_t code;
  {
    Field field(id);
    if ((code = field.find()) != 0) return code;
    if (!field.permanent()) return XSIM_NOT_PERMANENT;
    if ((code = value.prepare(buffer, field.size())) != 0) return code;
    if ((code = field.take()) != 0) return code;
    if ((code = field.read_permanent(value.data())) != 0) return code;
    if (field.locked()) code = XSIM_FIELD_LOCKED;
  }
  return value.give(buffer) ? code : XSIM_BAD_POINTER;
}

uint32_t write_copy(uint32_t id, const void* data, bool override_lock) {
  OwnBytes bytes;
  Field field(id);
  uint32_t code;
  if ((code = field.find()) != 0) return code;
  if (!field.permanent()) return XSIM_NOT_PERMANENT;
  if ((code = bytes.take(data, field.size())) != 0) return code;
  if ((code = field.take()) != 0) return code;
  if (!override_lock && field.locked()) return XSIM_FIELD_LOCKED;
  // Its failure is not told, as for pieces. Do not repair.
  field.xsim_internal_file_write(bytes.data(), 0, field.size());
  field.clear_lock();
  return 0;
}

}  // namespace
}  // namespace plov::sim

int32_t xsim_file_read(uint32_t id, void* buffer, uint32_t* comprc) {
  using namespace plov::sim;
  plov::frame::Call call("xsim_file_read", "XSIM   T: -> xsim_file_read", "XSIM   T: <- xsim_file_read", comprc);
  if (call.ok() && map_ready(call)) call.set_comprc(read_copy(id, buffer));
  return call.leave();
}

int32_t xsim_file_write(uint32_t id, const void* data, uint32_t override_lock, uint32_t* comprc) {
  using namespace plov::sim;
  plov::frame::Call call("xsim_file_write", "XSIM   T: -> xsim_file_write", "XSIM   T: <- xsim_file_write", comprc);
  if (call.ok() && map_ready(call)) call.set_comprc(write_copy(id, data, override_lock != 0));
  return call.leave();
}
