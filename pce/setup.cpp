// Set-up and unset: the counts of the process and of its threads.
#include <string.h>

#include "frame/call.h"
#include "frame/caller_memory.h"
#include "frame/shared_mutex.h"
#include "frame/trace_line.h"
#include "pce/failure.h"
#include "pce/process.h"
#include "pce/process_state.h"
#include "pce/thread_record.h"
#include "xpce.h"
#include "xtr.h"

namespace plov::pce {
namespace {

// A type that does not exist is refused and, all the same, set up as a temporary process: callers go on with their work
// and unset at its end. Do not stop here.
uint16_t chk_process_type(pce_call_record& record, uint16_t type) {
  if (type <= XPCE_PROC_NOASYNC) return type;
  record.comprc = XPCE_BAD_PROCESS_TYPE;
  record.sysrc = frame::kRefused;
  record.data = type;
  constexpr uint32_t kMessage = 0x702;  // not the reason code
  put_failure(record, "xpce_setup", kMessage, type);
  return XPCE_PROC_TEMPORARY;
}

// True when `action` was filled: this was the first set-up of the process.
bool set_up(pce_call_record& record, uint16_t type, struct sigaction& action) {
  ThreadRecord* const thread = init_thd(record);
  if (!thread) return false;
  ++gl_set_count;
  ++thread->set_count;
  xtr_trace("XPCE___F:    xpce_setup: count of active xpce_setup calls issued for this process is now %d",
            gl_set_count);
  xtr_trace("XPCE___F:              : count for this thread is %d", thread->set_count);
  const bool first = gl_set_count == 1;
  int32_t result = 0;
  if (first) {
    result = process_setup(record, type, action, *thread);
  } else {
    xtr_trace("XPCE___F:    xpce_setup: Global signal handler already installed for this process.");
    if (thread->set_count == 1) result = thd_setup(record, *thread, type, nullptr);
  }
  if (result != 0) {
    --gl_set_count;
    --thread->set_count;
  }
  return first;
}

void trace_counts(const char* now, const ThreadRecord& thread) {
  xtr_trace("XPCE___F:    xpce_unset: count of setup/unset calls issued for this process is %s%d", now, gl_set_count);
  xtr_trace("XPCE___F:              : count for this thread is %d", thread.set_count);
}

void refuse(pce_call_record& record, uint32_t code, const ThreadRecord& thread) {
  record.comprc = code;
  record.sysrc = frame::kRefused;
  trace_counts("", thread);
}

// True when it was the last of the process.
bool unset(pce_call_record& record) {
  ThreadRecord* const thread = init_thd(record);
  if (!thread) return false;
  if (gl_set_count == 0) {
    refuse(record, XPCE_NO_ACTIVE_SETUP, *thread);
    return false;
  }
  if (thread->set_count == 0) {
    refuse(record, XPCE_NO_THREAD_SETUP, *thread);
    return false;
  }
  --gl_set_count;
  --thread->set_count;
  trace_counts("now ", *thread);
  const bool last = gl_set_count == 0;
  if (last)
    proc_unset(record);
  else
    xtr_trace("XPCE___F:    xpce_unset: Global signal handler not uninstalled on this call");
  if (thread->set_count == 0) thd_unset(record, *thread);
  return last;
}

}  // namespace
}  // namespace plov::pce

int32_t xpce_setup(uint16_t process_type, struct sigaction* new_action, struct sigaction* old_action,
                   uint32_t* comprc) {
  using namespace plov;
  frame::Call call("xpce_setup", "XPCE___T: -> xpce_setup:", "XPCE___T: <- xpce_setup:", comprc);
  // Probed always, though only the first set-up of a process writes there: whether a call is good must not depend on
  // what other threads do. And before the mutex, for its holder cannot probe.
  if (call.writable(new_action, sizeof *new_action, XPCE_BAD_NEW_ACTION) &&
      call.writable(old_action, sizeof *old_action, XPCE_BAD_OLD_ACTION)) {
    struct sigaction action = {};
    const struct sigaction cleared = {};
    bool filled = false;
    process_type = pce::chk_process_type(call.record(), process_type);
    pce::prepare_process_setup();
    if (const frame::SharedMutex mutex(call.record()); mutex.held())
      filled = pce::set_up(call.record(), process_type, action);
    if (filled) {
      frame::copy_to_caller(new_action, &action, sizeof action);
      frame::copy_to_caller(old_action, &cleared, sizeof cleared);
    }
  }
  return call.leave(frame::kPceTag);
}

int32_t xpce_unset(struct sigaction* action, uint32_t* comprc) {
  using namespace plov;
  frame::Call call("xpce_unset", "XPCE___T: -> xpce_unset", "XPCE___T: <- xpce_unset", comprc);
  if (call.writable(action, sizeof *action, XPCE_BAD_NEW_ACTION)) {
    const struct sigaction cleared = {};
    bool last = false;
    if (const frame::SharedMutex mutex(call.record()); mutex.held()) last = pce::unset(call.record());
    if (last) frame::copy_to_caller(action, &cleared, sizeof cleared);
  }
  return call.leave(frame::kPceTag);
}
