// What is left of an event that problem analysis could not be told of.
#include "frame/call.h"
#include "log/pa/crash_file.h"
#include "log/pa/event.h"
#include "xlog.h"
#include "xtr.h"

int32_t xp11_critical(uint32_t* comprc, const xlog_event_identity* event, uint8_t /*a*/, uint8_t /*b*/,
                      uint16_t /*code*/, uint32_t return_code) {
  using namespace plov;
  frame::Call call("xp11_critical", "XP11PA T: -> xp11_critical", "XP11PA T: <- xp11_critical", comprc);
  xlog_event_identity copy;
  if (log::pa::take_event(call, &copy, event)) {
    log::pa::trace_eventid(copy.eventid);
    xtr_trace("XP11PA F: seconds(i)   = %i", copy.timestamp.seconds);
    xtr_trace("XP11PA F: seconds(.8x) = %.8x", copy.timestamp.seconds);
    xtr_trace("XP11PA F: hundredths(u)= %u", copy.timestamp.hundredths);
    xtr_trace("XP11PA F: hundredths(x)= %x", copy.timestamp.hundredths);
    log::pa::write_crash_file(call, copy, return_code);
  }
  return call.leave();
}
