#include "pce/process.h"

#include <execinfo.h>
#include <string.h>

#include <algorithm>
#include <atomic>

#include "frame/trace_line.h"
#include "pce/daemon.h"
#include "pce/failure.h"
#include "pce/process_state.h"
#include "pce/signals.h"
#include "pce/vm_signals.h"
#include "xdfc.h"
#include "xpce.h"
#include "xtr.h"

namespace plov::pce {
namespace {

using frame::pce_trace_line;

using Handler = void (*)(int, siginfo_t*, void*);
constexpr Handler kHandlers[] = {xpce_tempHandler, xpce_permHandler, xpce_paHandler, xpce_noasyncHandler};

// Where core files go. The path table's longest directory fits; a failure leaves it unknown.
void find_core_directory() {
  uint32_t comprc = 0;
  if (xdfc_query_file_location("core.123", coreDir, &comprc) != 0) coreDir[0] = '\0';
}

std::atomic<bool> is_set_up;

}  // namespace

void prepare_process_setup() {
  if (is_set_up) return;
  // The collector's first call loads the unwinder and allocates: it must not be the handler's.
  void* address;
  backtrace(&address, 1);
  find_vm();
}

int32_t process_setup(pce_call_record& record, uint16_t type, struct sigaction& action, ThreadRecord& thread) {
  pce_trace_line('D', "-> process_setup:");
  gl_procend = type;
  find_core_directory();
  memset(&action, 0, sizeof action);
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_SIGINFO;
  action.sa_sigaction = kHandlers[type];
  int32_t result = thd_setup(record, thread, type, &action);
  if (result == 0) {
    result = setup_sigaction(record, action);
    if (result == 0) {
      result = register_fn(record, gl_daemon_sock, type);
      if (result != 0) result = std::max(result, reset_sigaction());
    }
  }
  is_set_up = result == 0;
  if (result != 0) result = std::max(result, thd_unset(record, thread));
  pce_trace_line('D', "<- process_setup:");
  return result;
}

int32_t proc_unset(pce_call_record& record) {
  pce_trace_line('D', "-> proc_unset:");
  int32_t result = reset_sigaction();
  if (const uint32_t crashes = gl_first_exception.load(); crashes != 0) {
    pce_trace_line('F', "   proc_unset: We are trying to perform the process global xpce_unset(), but");
    pce_trace_line('F', "             : the global flag indicates that we are processing a trap at");
    pce_trace_line('F', "             : this time. Process de-register to ywkeppce Daemon not performed");
    if (record.comprc == 0) record.comprc = XPCE_DEREGISTER_SKIPPED;
    record.data = crashes;
    put_failure(record, "proc_unset", XPCE_DEREGISTER_SKIPPED, crashes);
  } else {
    result = std::max(result, deregister_fn(record, gl_daemon_sock));
  }
  gl_procend = 0;
  is_set_up = false;
  pce_trace_line('D', "<- proc_unset:");
  return result;
}

}  // namespace plov::pce
