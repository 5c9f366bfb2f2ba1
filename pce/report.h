// The exception report of a process's first crash. Signal-safe.
#ifndef PLOV_PCE_REPORT_H
#define PLOV_PCE_REPORT_H

#include <signal.h>

#include "pce.h"
#include "pce_wire.h"

namespace plov::pce {

// Builds the report and hands it on. `previous` is what the first-exception marker was before: with 1, another thread
// is at it, and nothing is built.
void FormatException(pce_call_record& record, uint32_t previous, uint32_t report_id, int signal,
                     const siginfo_t* information, void* context, const char* tag);

// Sends the report to the daemon, or, outside a crash handler, writes it to the log. Not for SIGTERM, and for the first
// exception only. Always 0.
int32_t reporterr(pce_call_record& record, uint32_t previous, pce_wire_take_log& request, uint32_t report_id,
                  int signal);

}  // namespace plov::pce

#endif
