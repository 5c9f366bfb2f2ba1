// The process-control daemon: registration over a connection that stays, and what goes over it in a crash.
#ifndef PLOV_PCE_DAEMON_H
#define PLOV_PCE_DAEMON_H

#include "pce.h"
#include "pce_wire.h"

namespace plov::pce {

// Connects, registers and waits for the acknowledgement; `socket` is -1 after a failure. Under xtr_mutex_sem.
int32_t register_fn(pce_call_record& record, int32_t& socket, uint16_t type);

// De-registers, waits for the acknowledgement, closes in any case. Under xtr_mutex_sem.
int32_t deregister_fn(pce_call_record& record, int32_t& socket);

// Completes the report with the traces and the backtrace and sends it. The result is the send's. Signal-safe.
int32_t fwd_to_daemon(pce_call_record& record, pce_wire_take_log& request, int32_t socket);

// A connection for a process that has none, as a forked child: -1 when there is none to be had. Signal-safe.
int32_t connect_to_daemon(pce_call_record& record);

}  // namespace plov::pce

#endif
