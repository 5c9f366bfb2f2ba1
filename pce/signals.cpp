#include "pce/signals.h"

#include <errno.h>
#include <pthread.h>
#include <unistd.h>

#include "frame/crash_action.h"
#include "frame/shared_mutex.h"
#include "frame/trace_line.h"
#include "pce/vm_signals.h"
#include "xtr.h"

namespace plov::pce {
namespace {

using frame::pce_trace_line;

struct Handled {
  int signal;
  const char* name;
  struct sigaction old;
  volatile bool installed;
};

// In the order in which they are installed and removed.
Handled handled[] = {
    {SIGABRT, "SIGABRT", {}, false}, {SIGBUS, "SIGBUS", {}, false},   {SIGFPE, "SIGFPE", {}, false},
    {SIGILL, "SIGILL", {}, false},   {SIGQUIT, "SIGQUIT", {}, false}, {SIGPIPE, "SIGPIPE", {}, false},
    {SIGSEGV, "SIGSEGV", {}, false}, {SIGTERM, "SIGTERM", {}, false}, {SIGXCPU, "SIGXCPU", {}, false},
    {SIGXFSZ, "SIGXFSZ", {}, false},
};

void (*our_handler)(int, siginfo_t*, void*);

Handled* find(int signal) {
  for (Handled& one : handled)
    if (one.signal == signal) return &one;
  return nullptr;
}

// The kernel's action, whatever the log's guard remembers: the signal is to end the process now. SIG_IGN cannot be
// meant, for ignored signals were left alone.
bool restore_and_raise(Handled& one, bool& locked) {
  one.installed = false;
  xtr_trace("XPCE___D:    passSignalOn: About to remove old signal handler");
  if (sigaction(one.signal, &one.old, nullptr) != 0) {
    xtr_trace("XPCE___F:    passSignalOn: ERROR!! sigaction returned %d", errno);
    return false;
  }
  if (locked) sig_pthd_mutex_rel(&xtr_mutex_sem, 0x750);
  locked = false;
  xtr_trace("XPCE___F:    passSignalOn: About to re-raise the signal");
  if (const int rc = pthread_kill(pthread_self(), one.signal); rc != 0)
    xtr_trace("XPCE___F:    passSignalOn: ERROR!! pthread_kill returned %d", rc);
  return true;
}

}  // namespace

int32_t setup_sigaction(pce_call_record&, const struct sigaction& action) {
  pce_trace_line('D', "-> setup_sigaction:");
  int32_t result = 0;
  our_handler = action.sa_sigaction;
  for (Handled& one : handled) {
    result = frame::read_crash_action(one.signal, &one.old);
    if (result != 0) xtr_trace("XPCE___F: sigaction for %s returned an %d", one.name, result);
    if (one.old.sa_handler == SIG_IGN) continue;
    frame::write_crash_action(one.signal, &action);
    one.installed = true;
  }
  pce_trace_line('D', "<- setup_sigaction:");
  return result;
}

int32_t reset_sigaction() {
  pce_trace_line('D', "-> reset_sigaction:");
  for (Handled& one : handled) {
    struct sigaction current = {};
    frame::read_crash_action(one.signal, &current);
    // What a VM that has started meanwhile put in front of us is not ours to take away: it cannot live without.
    const bool vms = !is_our_handler(current) && is_vms_handler(current);
    if (one.installed && !vms) frame::write_crash_action(one.signal, &one.old);
    one.installed = false;
  }
  pce_trace_line('D', "<- reset_sigaction:");
  return 0;
}

bool is_our_handler(const struct sigaction& action) {
  return action.sa_sigaction == our_handler;
}

bool displaces_handler(int signal) {
  const Handled* const one = find(signal);
  return one && one->installed && one->old.sa_handler != SIG_DFL;
}

int sig_pthd_mutex_req(pthread_mutex_t* mutex, uint32_t timeout, uint32_t id) {
  pce_trace_line('D', "-> sig_pthd_mutex_req: For ID= 0x%X, addr= %p, timeout= %u", id, static_cast<void*>(mutex),
                 timeout);
  const int rc = mutex == &xtr_mutex_sem ? frame::lock_shared_mutex() : pthread_mutex_lock(mutex);
  if (rc != 0) {
    pce_trace_line('F', "   sig_pthd_mutex_req: Error for ID= 0x%X, addr= %p", id, static_cast<void*>(mutex));
    pce_trace_line('F', "                     : timeout was %u. Error is %u", timeout, static_cast<uint32_t>(rc));
  }
  pce_trace_line('D', "<- sig_pthd_mutex_req");
  return rc;
}

int sig_pthd_mutex_rel(pthread_mutex_t* mutex, uint32_t id) {
  pce_trace_line('D', "-> sig_pthd_mutex_rel for ID= 0x%X. addr= %p", id, static_cast<void*>(mutex));
  const int rc = mutex == &xtr_mutex_sem ? frame::unlock_shared_mutex() : pthread_mutex_unlock(mutex);
  if (rc != 0) {
    pce_trace_line('F', "   sig_pthd_mutex_rel: Error for ID= 0x%X, addr= %p", id, static_cast<void*>(mutex));
    pce_trace_line('F', "                     : Error is %u", static_cast<uint32_t>(rc));
  }
  pce_trace_line('D', "<- sig_pthd_mutex_rel");
  return rc;
}

void passSignalOn(int signal) {
  xtr_trace("XPCE___F: -> passSignalOn");
  bool locked = sig_pthd_mutex_req(&xtr_mutex_sem, 90000, 0x750) == 0;
  Handled* const one = find(signal);
  if (one && !restore_and_raise(*one, locked)) {
    if (locked) sig_pthd_mutex_rel(&xtr_mutex_sem, 0x750);
    locked = false;
    xtr_trace("XPCE___F:    passSignalOn: sigaction() failed. About to SIGKILL ourselves!");
    if (const int rc = pthread_kill(pthread_self(), SIGKILL); rc != 0)
      xtr_trace("XPCE___F:    passSignalOn: ERROR!! pthread_kill(SIGKILL) returned %d", rc);
  }
  if (locked) sig_pthd_mutex_rel(&xtr_mutex_sem, 0x750);
  xtr_trace("XPCE___F: <- passSignalOn");
}

void break_circle(int signal) {
  Handled* const one = find(signal);
  if (one && !one->installed) one->old = {};
}

void end_first_process(int signal, const siginfo_t* information) {
  const Handled* const one = getpid() == 1 ? find(signal) : nullptr;
  if (!one || one->old.sa_handler != SIG_DFL) return;
  const bool can_be_fault = signal == SIGSEGV || signal == SIGBUS || signal == SIGFPE || signal == SIGILL;
  if (can_be_fault && information && information->si_code > 0) return;
  xtr_trace("XPCE___F:    end_first_process: About to exit with status %d", 128 + signal);
  _exit(128 + signal);
}

}  // namespace plov::pce
