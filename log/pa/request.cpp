// Telling the problem-analysis listener of an event.
#include <string.h>

#include "frame/call.h"
#include "frame/deferred.h"
#include "log/pa/event.h"
#include "log/system_field.h"
#include "xlog.h"
#include "xnb.h"
#include "xtr.h"

namespace plov::log::pa {
namespace {

constexpr uint8_t kTell = 1;  // the switch's value for it

// An event that the analysis must not be told of: it reports itself with it.
constexpr uint8_t kOwnClass = 0x0A;
constexpr uint8_t kOwnType = 0x15;

// Handed to xp11_critical with every event; nothing of them reaches the crash file.
constexpr uint8_t kCriticalA = 160;
constexpr uint8_t kCriticalB = 50;

bool keep(const xlog_event_identity& event, int32_t return_code) {
  uint32_t ignored;
  xp11_critical(&ignored, &event, kCriticalA, kCriticalB, XP11_NOT_TOLD, static_cast<uint32_t>(return_code));
  return false;
}

// True when the listener knows of the event or is not to know; else a crash file keeps it, as well as can be.
bool tell(const xlog_event_identity& event) {
  const xlog_timestamp& stamp = event.timestamp;
  const int64_t milliseconds = int64_t{stamp.seconds} * 1000 + stamp.hundredths * 10;
  xtr_trace("XP11PA F: call event generator with");
  trace_eventid(event.eventid);
  xtr_trace("XP11PA F: seconds(d)   = %d", stamp.seconds);
  xtr_trace("XP11PA F: seconds(.8x) = %.8x", stamp.seconds);
  xtr_trace("XP11PA F: hundredths   = %x", stamp.hundredths);

  uint8_t switched = 0;
  uint32_t code;
  const int32_t read = read_system_field(kAnalysisField, &switched, sizeof switched, &code);
  if (read != 0) return keep(event, read);
  if (switched != kTell) {
    xtr_trace("XP11PA F: SIM field is %x. Skip telling PA", switched);
    return true;
  }
  if (event.eventid.classes == kOwnClass && event.eventid.log_type == kOwnType) {
    xtr_trace("XP11PA F: got a 0a 15 refcode don't call pa with it");
    return true;
  }
  const int32_t status =
      xnbCallStaticVoidMethod("com.zanth.vemra.xfw.pa.util.LogListener", "handle", "BBSJ", int{event.eventid.classes},
                              int{event.eventid.log_type}, int{event.eventid.user}, milliseconds);
  if (status == 0) return true;
  xtr_trace("XP11PA F: got an error call critical.");
  return keep(event, status);
}

// The event as it waits for the release of the thread's locks.
static_assert(sizeof(xlog_event_identity) <= sizeof frame::Deferred::values);

void tell_now(const frame::Deferred& waiting) {
  xlog_event_identity event;
  memcpy(&event, waiting.values, sizeof event);
  tell(event);
}

// Java is never called while the thread holds the log lock: the VM takes faults of its own, which the log's guard would
// take for a crash. An event that cannot wait is kept in its crash file at once.
bool tell_or_defer(const xlog_event_identity& event) {
  if (!frame::lock_held()) return tell(event);
  frame::Deferred waiting = {tell_now, {}};
  memcpy(waiting.values, &event, sizeof event);
  return frame::record_or_defer(waiting) || keep(event, frame::kSystemFailure);
}

}  // namespace
}  // namespace plov::log::pa

int32_t xp11_request(uint32_t* comprc, uint32_t /*reserved1*/, const xlog_event_identity* event, uint32_t /*reserved2*/,
                     uint16_t /*error_id*/, uint32_t /*error_reason*/) {
  using namespace plov;
  frame::Call call("xp11_request", "XP11PA T: -> xp11_request", "XP11PA T: <- xp11_request", comprc);
  xlog_event_identity copy;
  if (log::pa::take_event(call, &copy, event) && !log::pa::tell_or_defer(copy))
    call.fail(frame::kSystemFailure, XP11_NOT_TOLD);
  return call.leave();
}
