// Values of Java-served fields, fetched and handed over through the native bridge. No lock of the map is held.
#include <string.h>

#include <algorithm>

#include "frame/bridge.h"
#include "frame/call.h"
#include "frame/caller_memory.h"
#include "frame/memory.h"
#include "frame/probe.h"
#include "sim/java_fields.h"
#include "sim/own_bytes.h"
#include "xnb.h"
#include "xsim.h"
#include "xtr.h"

namespace plov::sim {
namespace {

constexpr char kClass[] = "com.zanth.vemra.base.util.SimServer";
constexpr char kGet[] = "getSimData";
constexpr char kSet[] = "setSimData";

using frame::bridge_status;
using frame::JavaReference;

int32_t refuse(uint32_t* comprc, int32_t status) {
  xtr_trace("XSIMSJLF: Error was: %s", xnbGetLastErrorMessage());
  *comprc = static_cast<uint32_t>(status);
  return frame::kRefused;
}

int32_t copy_to_buffer(xnb_object array, uint32_t array_length, uint16_t length, void* buffer, uint32_t* comprc) {
  const frame::Owned<uint8_t> bytes(static_cast<uint8_t*>(PLOV_MALLOC(array_length)));
  if (!bytes) {
    xtr_trace("XSIMSJLF: ERROR: Could not allocate temp buffer");
    *comprc = XSIM_NO_MEMORY;
    return frame::kRefused;
  }
  if (const int32_t status = xnbGetByteArrayElements(array, 0, array_length, bytes.get()); status != 0) {
    xtr_trace("XSIMSJLF: ERROR: Could not get byte array data; xnbGetByteArrayElements returned: %d", status);
    return refuse(comprc, status);
  }
  const uint32_t count = std::min<uint32_t>(array_length, length);
  xtr_trace("XSIMSJLF: copying %d bytes from array into user buffer.", count);
  if (frame::copy_to_caller(buffer, bytes.get(), count)) return 0;
  *comprc = XSIM_BAD_POINTER;
  return frame::kRefused;
}

int32_t read_value(uint16_t id, uint16_t length, void* buffer, uint32_t* comprc) {
  JavaReference array;
  xtr_trace("XSIMSJLF: about to call method %s from class %s.", kGet, kClass);
  int32_t status = bridge_status(xnbCallStaticObjectMethodI(kClass, kGet, "I", &array.object, static_cast<int>(id)));
  if (status != 0) {
    xtr_trace("XSIMSJLF: ERROR: Could not get SIM data from Java; xnbCallStaticObjectMethod returned: %d", status);
    return refuse(comprc, status);
  }
  xtr_trace("XSIMSJLF: xnbCallStaticObjectMethod call successfully to get SIM data");
  uint32_t array_length = 0;
  status = xnbGetArrayLength(array.object, &array_length);
  if (status != 0) {
    xtr_trace("XSIMSJLF: ERROR: Could not array length from Java; xnbGetArrayLength returned: %d", status);
    return refuse(comprc, status);
  }
  xtr_trace("XSIMSJLF: The Java array length is %d.", array_length);
  xtr_trace("XSIMSJLF: The SIM field length is %d.", length);
  if (array_length > 0) return copy_to_buffer(array.object, array_length, length, buffer, comprc);
  *comprc = 0;
  return 0;
}

int32_t write_value(uint16_t id, uint16_t length, const uint8_t* bytes, uint32_t* comprc) {
  JavaReference array;
  int32_t status = bridge_status(xnbCreateArrayI("B", length, &array.object));
  if (status != 0) {
    xtr_trace("XSIMSJLF: ERROR: Could not get Java array for SIM data; xnbCreateArray returned: %d", status);
    return refuse(comprc, status);
  }
  status = xnbSetByteArrayElements(array.object, 0, length, bytes);
  if (status != 0) {
    xtr_trace("XSIMSJLF: ERROR: Could not set Java array with SIM data; xnbSetByteArrayElements returned: %d", status);
    return refuse(comprc, status);
  }
  xtr_trace("XSIMSJLF: about to call method %s from class %s.", kSet, kClass);
  status = xnbCallStaticVoidMethod(kClass, kSet, "I[B", static_cast<int>(id), array.object);
  if (status != 0) {
    // In the words of the reading side, which is what searches of old traces look for.
    xtr_trace("XSIMSJLF: ERROR: Could not get SIM data from Java; xnbCallStaticObjectMethod returned: %d", status);
    return refuse(comprc, status);
  }
  xtr_trace("XSIMSJLF: xnbCallStaticObjectMethod call successfully to set SIM data");
  return 0;
}

}  // namespace

int32_t read_from_java(uint16_t id, uint16_t length, void* buffer, uint32_t* comprc) {
  xtr_trace("XSIMSJLT: ->xsim_talk_2_java");
  const int32_t sysrc = read_value(id, length, buffer, comprc);
  xtr_trace("XSIMSJLT: <-xsim_talk_2_java");
  return sysrc;
}

int32_t write_to_java(uint16_t id, uint16_t length, const uint8_t* bytes, uint32_t* comprc) {
  xtr_trace("XSIMSJLT: ->xsim_talk_2_java");
  const int32_t sysrc = write_value(id, length, bytes, comprc);
  xtr_trace("XSIMSJLT: <-xsim_talk_2_java");
  return sysrc;
}

}  // namespace plov::sim

int32_t xsim_talk_2_java(uint8_t direction, uint16_t id, uint16_t length, void* buffer, uint32_t* comprc) {
  using namespace plov;
  constexpr uint8_t kFromJava = 1;
  uint32_t scratch;
  if (frame::probe(comprc, sizeof *comprc, frame::Access::write, &scratch) != 0) return frame::kUnusableComprc;
  uint32_t code = *comprc;
  int32_t sysrc = frame::kRefused;
  if (direction == kFromJava) {
    if (frame::probe(buffer, length, frame::Access::write, &scratch) == 0)
      sysrc = sim::read_from_java(id, length, buffer, &code);
    else
      code = XSIM_BAD_POINTER;
  } else {
    sim::OwnBytes bytes;
    if (const uint32_t bad = bytes.take(buffer, length); bad != 0)
      code = bad;
    else
      sysrc = sim::write_to_java(id, length, bytes.data(), &code);
  }
  *comprc = code;
  return sysrc;
}
