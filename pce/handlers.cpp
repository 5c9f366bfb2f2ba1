// The crash handlers. They run on the faulting thread, on its alternate stack when it has one. Signal-safe: they
// allocate nothing, wait for no lock of their own thread, and for nothing else without a bound.
#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include "frame/probe.h"
#include "frame/shared_mutex.h"
#include "pce/backtrace.h"
#include "pce/process_state.h"
#include "pce/report.h"
#include "pce/signals.h"
#include "pce/thread_record.h"
#include "pce/user_exits.h"
#include "pce/vm_signals.h"
#include "xpce.h"
#include "xtr.h"

namespace plov::pce {
namespace {

constexpr unsigned kPatience = 60;  // seconds that a second crash leaves to the first

// Set once a thread is in the handler, and never cleared: the process is expected to end. Not a thread-specific key of
// the C library, which may have to be given memory on its first use in a thread.
thread_local volatile bool trap_flag __attribute__((tls_model("initial-exec")));

// Returns when there is no backtrace collector of this thread to go back to.
void crashed_again(int signal) {
  xtr_trace("XPCE___F:    all_handler: An exception occured while processing another exception from");
  xtr_trace("XPCE___F:               : this thread.");
  if (collecting_backtrace()) {
    xtr_trace("XPCE___F:    all_handler: Thread id is the same as set in prot_collect_btrace()...");
    xtr_trace("XPCE___F:               : About to jump back to restore location.");
    return_to_collector();
  }
  xtr_trace("XPCE___F:               : Bailing out...");
  break_circle(signal);
}

void crashed(pce_call_record& record, int signal, siginfo_t* information, void* context, uint32_t report_id,
             const char* tag) {
  trap_flag = true;
  const uint32_t previous = gl_first_exception.exchange(1);
  FormatException(record, previous, report_id, signal, information, context, tag);
  if (previous != 0) {
    xtr_trace("XPCE___F:    all_handler: Another exception handler already running. About");
    xtr_trace("XPCE___F:               : to wait 60 secs. for the 'other' handler to complete.");
    // A signal whose handler returns ends a sleep: the rest of it follows.
    for (unsigned left = kPatience; left > 0;) left = sleep(left);
  } else {
    callUserExits(signal, information, context);
  }
}

void all_handler(pce_call_record& record, int signal, siginfo_t* information, void* context, uint32_t report_id) {
  xtr_trace("XPCE___F: -> all_handler");
  char tag[kTagSize];
  get_user_tag(tag);
  xtr_trace("XPCE___F:    all_handler: User Thread tag >%s<", tag);
  if (trap_flag)
    crashed_again(signal);
  else
    crashed(record, signal, information, context, report_id, tag);
  passSignalOn(signal);
  end_first_process(signal, information);
  xtr_trace("XPCE___F: <- all_handler");
}

// A fault in the handler is never the VM's.
bool not_a_crash(int signal, siginfo_t* information, void* context) {
  return !trap_flag && vm_took(signal, information, context);
}

// Around each handler: nothing may take its thread away, and the earlier action may be one that goes on.
class Surroundings {
 public:
  explicit Surroundings(const char* name) : saved_errno_(errno), probe_(frame::suspend_probe()) {
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_state_);
    record_.active = 1;
    record_.crash = 1;
    strncpy(record_.name, name, sizeof record_.name - 1);
  }
  Surroundings(const Surroundings&) = delete;
  Surroundings& operator=(const Surroundings&) = delete;
  ~Surroundings() {
    pthread_setcancelstate(cancel_state_, nullptr);
    if (probe_) frame::resume_probe();
    errno = saved_errno_;
  }
  pce_call_record& record() { return record_; }

 private:
  int saved_errno_;
  bool probe_;
  int cancel_state_;
  frame::CrashPatience patience_;
  pce_call_record record_ = {};
};

}  // namespace
}  // namespace plov::pce

void xpce_tempHandler(int signal, siginfo_t* information, void* context) {
  if (plov::pce::not_a_crash(signal, information, context)) return;
  plov::pce::Surroundings surroundings("xpce_tempHandler");
  xtr_trace("XPCE___F: -> xpce_tempHandler: temporary exception handler running with signal %d", signal);
  plov::pce::all_handler(surroundings.record(), signal, information, context, 0x40A);
  xtr_trace("XPCE___F: <- xpce_tempHandler: temporary exception handler ending");
}

// The arrow that the entry line lacks and the spelling of the exit line's name are known to who reads these traces.
void xpce_permHandler(int signal, siginfo_t* information, void* context) {
  if (plov::pce::not_a_crash(signal, information, context)) return;
  plov::pce::Surroundings surroundings("xpce_permHandler");
  xtr_trace("XPCE___F: xpce_permHandler: permanent exception handler running with signal %d", signal);
  plov::pce::all_handler(surroundings.record(), signal, information, context, 0x40C);
  xtr_trace("XPCE___F: <- xpce_permhandler: permanent exception handler ending");
}

void xpce_paHandler(int signal, siginfo_t* information, void* context) {
  if (plov::pce::not_a_crash(signal, information, context)) return;
  plov::pce::Surroundings surroundings("xpce_paHandler");
  xtr_trace("XPCE___F: -> xpce_paHandler: PA exception handler running with signal %d", signal);
  plov::pce::all_handler(surroundings.record(), signal, information, context, 0x400);
  xtr_trace("XPCE___F: <- xpce_paHandler: PA exception handler ending");
}

// The exit line's spelling is known to who reads these traces.
void xpce_noasyncHandler(int signal, siginfo_t* information, void* context) {
  if (plov::pce::not_a_crash(signal, information, context)) return;
  plov::pce::Surroundings surroundings("xpce_noasyncHandler");
  xtr_trace("XPCE___F: -> xpce_noasyncHandler: No Async. Terminate exception handler running with signal %d", signal);
  plov::pce::all_handler(surroundings.record(), signal, information, context, 0x40E);
  xtr_trace("XPCE___F: <- xpce_noasynchHandler: No Asynch. Terminate exception handler ending");
}
