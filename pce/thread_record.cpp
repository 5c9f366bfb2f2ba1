#include "pce/thread_record.h"

#include <errno.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "frame/memory.h"
#include "frame/trace_line.h"
#include "pce/failure.h"
#include "pce/process_state.h"
#include "xpce.h"
#include "xtr.h"

namespace plov::pce {
namespace {

using frame::pce_trace_line;

// Whether the C library's threads are of the new model, in which a signal is handled by the thread that it is for, on
// that thread's own alternate stack.
bool get_thread_type() {
  pce_trace_line('D', "-> get_thread_type");
  bool new_model = false;
  const size_t size = confstr(_CS_GNU_LIBPTHREAD_VERSION, nullptr, 0);
  if (size > 0) {
    const frame::Owned<char> text(static_cast<char*>(PLOV_MALLOC(size)));
    new_model = text && confstr(_CS_GNU_LIBPTHREAD_VERSION, text.get(), size) > 0 && strstr(text.get(), "NPTL");
  }
  if (new_model) pce_trace_line('F', "   get_thread_type: NEW Threading model detected");
  pce_trace_line('D', "<- get_thread_type");
  return new_model;
}

void report_failure(pce_call_record& record, const char* call, uint32_t code, int rc) {
  pce_trace_line('F', "   init_thd: %s returned rc= %u", call, static_cast<uint32_t>(rc));
  pce_trace_line('F', "           : >%s<", strerror(rc));
  fail(record, code, static_cast<uint32_t>(rc));
  log_failure(record, "init_thd", code, static_cast<uint32_t>(rc));
}

bool create_key(pce_call_record& record) {
  if (gl_thd_key_created) {
    pce_trace_line('F', "   init_thd: Process Thread specific data key already created");
    return true;
  }
  pce_trace_line('F', "   init_thd: Creating Thread specific data key");
  if (const int rc = pthread_key_create(&gl_thd_data_key, xpce_thd_data_free); rc != 0) {
    report_failure(record, "pthread_key_create", XPCE_NO_KEY, rc);
    return false;
  }
  gl_thd_key_created = 1;
  if (get_thread_type()) {
    gl_use_alt_stack = 1;
    pce_trace_line('F', "   init_thd: NEW Threads detected. Will use sigaltstack stuff");
  }
  return true;
}

ThreadRecord* create_record(pce_call_record& record) {
  void* block;
  if (pce_malloc(&record, &block, sizeof(ThreadRecord)) != 0) return nullptr;
  xtr_trace("XPCE___F:    init_thd: Allocated thread specific data at %p, size is %d", block,
            static_cast<int>(sizeof(ThreadRecord)));
  // All of it: a crash must not be the first to ask for the stack's pages.
  memset(block, 0, sizeof(ThreadRecord));
  if (const int rc = pthread_setspecific(gl_thd_data_key, block); rc != 0) {
    report_failure(record, "pthread_setspecific", XPCE_RECORD_NOT_STORED, rc);
    pce_free(&record, block);
    return nullptr;
  }
  return static_cast<ThreadRecord*>(block);
}

int32_t set_alt_stack(pce_call_record& record, ThreadRecord& thread, struct sigaction* action) {
  if (thread.stack_in_effect) {
    pce_trace_line('F', "   set_alt_stack: Alternate stack already in effect at 0X%p", thread.stack_in_effect);
    return 0;
  }
  stack_t stack = {};
  stack.ss_sp = thread.alternate_stack;
  stack.ss_size = sizeof thread.alternate_stack;
  if (const int32_t rc = pce_sig_alt_stack(&record, &stack); rc != 0) return rc;
  if (action) action->sa_flags |= SA_ONSTACK;
  xtr_trace("XPCE___F:    set_alt_stack: sigaltstack location is 0x%p, size is %d", stack.ss_sp,
            static_cast<int>(stack.ss_size));
  thread.stack_in_effect = stack.ss_sp;
  return 0;
}

}  // namespace

ThreadRecord* init_thd(pce_call_record& record) {
  pce_trace_line('D', "-> init_thd:");
  void* thread = nullptr;
  if (create_key(record)) {
    thread = pthread_getspecific(gl_thd_data_key);
    if (thread)
      pce_trace_line('F', "   init_thd: Thread data already allocated at %p", thread);
    else
      thread = create_record(record);
  }
  pce_trace_line('D', "<- init_thd:");
  return static_cast<ThreadRecord*>(thread);
}

int32_t thd_setup(pce_call_record& record, ThreadRecord& thread, uint16_t type, struct sigaction* action) {
  thread.process_type = type;
  thread.trace_tid = xtr_gettid();
  return gl_use_alt_stack ? set_alt_stack(record, thread, action) : 0;
}

int32_t thd_unset(pce_call_record& record, ThreadRecord& thread) {
  thread.process_type = 0;
  if (!gl_use_alt_stack) return 0;
  xtr_trace("XPCE___F:    thd_unset: disabling Signal handler alternate stack");
  stack_t none = {};
  none.ss_flags = SS_DISABLE;
  const int32_t rc = pce_sig_alt_stack(&record, &none);
  if (rc == 0) thread.stack_in_effect = nullptr;
  return rc;
}

int32_t get_user_tag(char* tag) {
  xtr_trace("XPCE___D: -> get_user_tag");
  const ThreadRecord* const thread =
      gl_thd_key_created ? static_cast<const ThreadRecord*>(pthread_getspecific(gl_thd_data_key)) : nullptr;
  const char* const text = thread               ? thread->tag
                           : gl_thd_key_created ? "[This thread does not have thread specific data]"
                                                : "[Error! Process wide key gl_thd_data_key was never created!]";
  const size_t length = strnlen(text, kTagSize - 1);
  memcpy(tag, text, length);
  tag[length] = '\0';
  xtr_trace("XPCE___D: <- get_user_tag");
  return 0;
}

}  // namespace plov::pce
