// How process control's inner steps leave and report a failure.
#ifndef PLOV_PCE_FAILURE_H
#define PLOV_PCE_FAILURE_H

#include "pce.h"

namespace plov::pce {

inline constexpr int32_t kFailed = 8;  // what a step that failed returns

// A failure of the system: the first code stays, the grade becomes 8 at least, `data` explains.
void fail(pce_call_record& record, uint32_t code, uint32_t data);

// Message `id` with `value` in whichever of its lines takes one: an error in the log, or, put, a lesser event.
void log_failure(pce_call_record& record, const char* function, uint32_t id, uint32_t value);
void put_failure(pce_call_record& record, const char* function, uint32_t id, uint32_t value);

// A record for platform calls whose codes are not what this call reports.
pce_call_record inner_record(const pce_call_record& record);

}  // namespace plov::pce

#endif
