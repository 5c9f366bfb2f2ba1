// The process kernel's event calls, as this library makes them. Recording an event takes the log lock and probes, so
// one that is raised under a lock waits for the release like every other failure (frame/deferred.h).
#ifndef PLOV_FRAME_EVENT_H
#define PLOV_FRAME_EVENT_H

#include "pce.h"

namespace plov::frame {

using EventCall = decltype(&pce_log_event);  // or pce_put_event

// `function` must last; the lines, from pce_lookup_err, are given away. Not for a crash handler.
void report_event(EventCall call, const pce_call_record& record, const char* function, char* line1, char* line2,
                  uint32_t id);

}  // namespace plov::frame

#endif
