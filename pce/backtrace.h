// The symbolic backtrace of a crash. One thread's business: the first crash's. Signal-safe.
#ifndef PLOV_PCE_BACKTRACE_H
#define PLOV_PCE_BACKTRACE_H

#include "pce.h"
#include "pce_wire.h"

namespace plov::pce {

// The interrupted registers of the crash that is being reported; may be null.
void set_interrupted(void* context);

// Collects, for ten seconds at most, and survives a fault in doing so. Always 0.
int32_t prot_collect_btrace(pce_call_record& record, char (&text)[PCE_BACKTRACE_SIZE], uint32_t& length);

// For the handler of that fault: whether this thread is the collector, and the way back.
bool collecting_backtrace();
[[noreturn]] void return_to_collector();

}  // namespace plov::pce

#endif
