// The ten signals that a set-up process handles, and the actions that were in force before.
#ifndef PLOV_PCE_SIGNALS_H
#define PLOV_PCE_SIGNALS_H

#include <signal.h>

#include "pce.h"

namespace plov::pce {

// Puts `action` into force for the ten, but for those that the process ignores. The result is whether the last one's
// earlier action could be read, no more. Under xtr_mutex_sem.
int32_t setup_sigaction(pce_call_record& record, const struct sigaction& action);

// Puts back what setup_sigaction has replaced. Always 0. Under xtr_mutex_sem.
int32_t reset_sigaction();

// Gives the signal back to the action of before and sends it to this thread again: it arrives when the handler
// returns. Should that fail, the process ends by SIGKILL. Signal-safe.
void passSignalOn(int signal);

// Locking on the crash path. Results are pthread_mutex_lock's and _unlock's; the time-out is only traced. Signal-safe.
int sig_pthd_mutex_req(pthread_mutex_t* mutex, uint32_t timeout, uint32_t id);
int sig_pthd_mutex_rel(pthread_mutex_t* mutex, uint32_t id);

}  // namespace plov::pce

#endif
