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

// Whether the action is what setup_sigaction has put into force. Signal-safe.
bool is_our_handler(const struct sigaction& action);

// Whether a handler was in force before, and not the default action. Signal-safe.
bool displaces_handler(int signal);

// Gives the signal back to the action of before and sends it to this thread again: it arrives when the handler
// returns. Should that fail, the process ends by SIGKILL. Signal-safe.
void passSignalOn(int signal);

// For a signal that comes back to the thread that has given it back: the earlier handler is one that hands on to us,
// and the default action takes its place. Signal-safe.
void break_circle(int signal);

// Ends process 1 of a name space by _exit, 128 + the signal as its status: the kernel drops a signal that is to end
// that process, so what passSignalOn has sent will not. But for a fault, which comes again and ends it. Signal-safe.
void end_first_process(int signal, const siginfo_t* information);

// Locking on the crash path. Results are pthread_mutex_lock's and _unlock's; the time-out is only traced, that of
// xtr_mutex_sem in a crash is frame/shared_mutex.h's. Signal-safe.
int sig_pthd_mutex_req(pthread_mutex_t* mutex, uint32_t timeout, uint32_t id);
int sig_pthd_mutex_rel(pthread_mutex_t* mutex, uint32_t id);

}  // namespace plov::pce

#endif
