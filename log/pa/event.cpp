#include "log/pa/event.h"

#include "frame/caller_memory.h"
#include "xtr.h"

namespace plov::log::pa {

bool take_event(frame::Call& call, xlog_event_identity* event, const xlog_event_identity* callers) {
  if (!call.ok()) return false;
  return frame::take_from_caller(event, callers, sizeof *event, frame::Access::read) || call.refuse(XP11_BAD_EVENT);
}

void trace_eventid(const xlog_eventid& eventid) {
  xtr_trace("XP11PA F: class        = %x", eventid.classes);
  xtr_trace("XP11PA F: type         = %x", eventid.log_type);
  xtr_trace("XP11PA F: user         = %x", eventid.user);
}

}  // namespace plov::log::pa
