// What both calls of problem analysis share.
#ifndef PLOV_LOG_PA_EVENT_H
#define PLOV_LOG_PA_EVENT_H

#include "frame/call.h"
#include "xlog.h"

namespace plov::log::pa {

// Probes the caller's event block and copies it; refused with XP11_BAD_EVENT.
bool take_event(frame::Call& call, xlog_event_identity* event, const xlog_event_identity* callers);

// Traces class, type and user.
void trace_eventid(const xlog_eventid& eventid);

}  // namespace plov::log::pa

#endif
