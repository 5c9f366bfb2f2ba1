// The end of a thread that has a record: what it has left set up is taken back.
#include <string.h>

#include "frame/call.h"
#include "frame/shared_mutex.h"
#include "pce/failure.h"
#include "pce/process.h"
#include "pce/process_state.h"
#include "pce/thread_record.h"
#include "xpce.h"
#include "xtr.h"

namespace plov::pce {
namespace {

void complain(pce_call_record& record, const ThreadRecord& thread) {
  xtr_trace("XPCE___F:    xpce_thd_data_free: ERROR! Thread specific xpce_setup count is %d.", thread.set_count);
  xtr_trace("XPCE___F:                      : It should be zero at thread end. Original Trace");
  xtr_trace("XPCE___F:                      : TID was 0x%X", thread.trace_tid);
  xtr_trace("XPCE___F:                      : User Thread Tag >%s<", thread.tag);
  if (gl_procend == XPCE_PROC_NOASYNC) {
    xtr_trace("XPCE___F:    xpce_thd_data_free: Process PROCEND is XPCE_PROC_NOASYNC. Ignoring");
    xtr_trace("XPCE___F:                      : missing xpce_unsets() at thread termination.");
    return;
  }
  fail(record, XPCE_UNBALANCED_THREAD, static_cast<uint32_t>(thread.set_count));
  log_failure(record, "xpce_thd_data_free", XPCE_UNBALANCED_THREAD, static_cast<uint32_t>(thread.set_count));
}

void balance(pce_call_record& record, ThreadRecord& thread) {
  const frame::SharedMutex mutex(record);
  gl_set_count -= thread.set_count;
  xtr_trace("XPCE___F:    xpce_thd_data_free: Decremented Process xpce_setup count by %d.", thread.set_count);
  xtr_trace("XPCE___F:                      : Process count is now %d", gl_set_count);
  if (gl_set_count == 0) {
    xtr_trace("XPCE___F:    xpce_thd_data_free: Global xpce_setup() count is now zero.");
    xtr_trace("XPCE___F:                      : Performing the process xpce_unset() equivalent");
    proc_unset(record);
  }
  thd_unset(record, thread);
}

}  // namespace
}  // namespace plov::pce

void xpce_thd_data_free(void* thread_record) {
  using namespace plov::pce;
  xtr_trace("XPCE___T: -> xpce_thd_data_free: Data is %p", thread_record);
  if (!thread_record) return;
  pce_call_record record = {};
  record.active = 1;
  strncpy(record.name, "xpce_thd_data_free", sizeof record.name - 1);
  auto& thread = *static_cast<ThreadRecord*>(thread_record);
  if (thread.set_count != 0) {
    complain(record, thread);
    balance(record, thread);
  } else {
    xtr_trace("XPCE___F:                      : Original trace TID was 0x%X", thread.trace_tid);
    // Memory that a signal could still be handled on is not given back.
    if (thread.stack_in_effect) thd_unset(record, thread);
  }
  if (!thread.stack_in_effect) pce_free(&record, thread_record);
  xtr_trace("XPCE___T: <- xpce_thd_data_free:");
}
