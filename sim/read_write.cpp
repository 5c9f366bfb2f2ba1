// Whole fields: reading, writing, and how large one is.
#include <string.h>

#include "frame/call.h"
#include "sim/field.h"
#include "sim/java_fields.h"
#include "sim/load.h"
#include "sim/own_bytes.h"
#include "xsim.h"
#include "xtr.h"

namespace plov::sim {
namespace {

uint32_t read_field(uint32_t id, void* buffer) {
  OwnBytes value;
  uint32_t code;
  {
    Field field(id);
    if ((code = field.find()) != 0) return code;
    if ((code = value.prepare(buffer, field.size())) != 0) return code;
    if ((code = field.take()) != 0) return code;
    if (!field.initialized()) return XSIM_NOT_INITIALIZED;
    memcpy(value.data(), field.value(), value.size());
    if (field.locked()) code = XSIM_FIELD_LOCKED;
  }
  return value.give(buffer) ? code : XSIM_BAD_POINTER;
}

uint32_t write_field(uint32_t id, const void* data, bool override_lock) {
  OwnBytes bytes;
  Field field(id);
  uint32_t code;
  if ((code = field.find()) != 0) return code;
  if ((code = bytes.take(data, field.size())) != 0) return code;
  if ((code = field.take()) != 0) return code;
  if (!override_lock && field.locked()) return XSIM_FIELD_LOCKED;
  if (!field.in_area(0, bytes.size())) return XSIM_NOT_INITIALIZED;
  const bool write_through = field.persistent() && memcmp(field.value(), bytes.data(), bytes.size()) != 0;
  memcpy(field.value(), bytes.data(), bytes.size());
  // A field that had a size but no value has one now.
  field.set_flag(XSIM_INITIALIZED);
  if (write_through && (code = field.xsim_internal_file_write(bytes.data(), 0, field.size())) != 0) return code;
  field.clear_lock();
  return 0;
}

// The bridge leaves the caller's comprc alone when it succeeds; these calls promise the same.
void settle_java(frame::Call& call, int32_t sysrc, uint32_t comprc) {
  call.set_sysrc(static_cast<uint32_t>(sysrc));
  call.set_comprc(comprc);
}

void read_java_field(frame::Call& call, uint32_t id, void* buffer, uint32_t comprc) {
  const int32_t length = xsim_java_size(static_cast<int32_t>(id));
  if (length == 0) {
    xtr_trace("XSIMSRDF: SIM ID java not found");
    call.refuse(XSIM_UNKNOWN_FIELD);
    return;
  }
  xtr_trace("XSIMSRDF: SIM ID java length %d", length);
  if (!call.writable(buffer, static_cast<size_t>(length), XSIM_BAD_POINTER)) return;
  const int32_t sysrc = read_from_java(static_cast<uint16_t>(id), static_cast<uint16_t>(length), buffer, &comprc);
  settle_java(call, sysrc, comprc);
}

void write_java_field(frame::Call& call, uint32_t id, const void* data, uint32_t comprc) {
  const int32_t length = xsim_java_size(static_cast<int32_t>(id));
  if (length == 0) {
    xtr_trace("XSIMSWRF: SIM ID java not found");
    call.refuse(XSIM_UNKNOWN_FIELD);
    return;
  }
  xtr_trace("XSIMSWRF: SIM ID length %d", length);
  OwnBytes bytes;
  if (const uint32_t code = bytes.take(data, static_cast<size_t>(length)); code != 0) {
    call.refuse(code);
    return;
  }
  xtr_trace("XSIMSWRF: source =");
  xtr_dump_bytes(bytes.data(), static_cast<uint32_t>(length));
  const int32_t sysrc = write_to_java(static_cast<uint16_t>(id), static_cast<uint16_t>(length), bytes.data(), &comprc);
  settle_java(call, sysrc, comprc);
}

// The map is attached or loaded; that it cannot be is no matter to a field that is not in it.
void try_map() {
  uint32_t code;
  if (!header_attached()) init(&code);
}

uint32_t size_of(uint32_t id) {
  uint32_t code = 0;
  int32_t result = header_attached() ? 0 : init(&code);
  if (result != 0) return 0;
  Field field(id);
  if ((code = field.find()) != 0) {
    xtr_trace("XSIM   F: sim_check returned error rc - %d, ret - %d", code, frame::kRefused);
    return 0;
  }
  return field.take() == 0 && field.initialized() ? field.size() : 0;
}

}  // namespace
}  // namespace plov::sim

int32_t xsim_read(uint32_t id, void* buffer, uint32_t* comprc) {
  using namespace plov::sim;
  plov::frame::Call call("xsim_read", "XSIM   T: -> xsim_read", "XSIM   T: <- xsim_read", comprc);
  if (call.ok()) {
    xtr_trace("XSIMSRDF:  SIM ID=%d", id);
    try_map();  // alone of all operations this one goes on when that fails, and meets a pass that is not loaded
    if (java_served(id))
      read_java_field(call, id, buffer, *comprc);
    else if (const uint32_t code = read_field(id, buffer); code != 0)
      call.refuse(code);
  }
  return call.leave();
}

int32_t xsim_write(uint32_t id, const void* data, uint32_t override_lock, uint32_t* comprc) {
  using namespace plov::sim;
  plov::frame::Call call("xsim_write", "XSIM   T: -> xsim_write", "XSIM   T: <- xsim_write", comprc);
  if (call.ok()) {
    xtr_trace("XSIMSWRF: SIM ID=%d", id);
    if (map_ready(call)) {
      if (java_served(id))
        write_java_field(call, id, data, *comprc);
      else if (const uint32_t code = write_field(id, data, override_lock != 0); code != 0)
        call.refuse(code);
    }
  }
  return call.leave();
}

uint32_t xsim_size(uint32_t id) {
  xtr_trace("XSIM   T: -> xsim_size");
  const uint32_t size = plov::sim::size_of(id);
  xtr_trace("XSIM   T: <- xsim_size");
  return size;
}
