// What process control keeps of a thread: its record, kept under gl_thd_data_key, and the alternate signal stack in it.
#ifndef PLOV_PCE_THREAD_RECORD_H
#define PLOV_PCE_THREAD_RECORD_H

#include <signal.h>
#include <stddef.h>
#include <stdint.h>

#include "pce.h"
#include "plov_api.h"

namespace plov::pce {

inline constexpr size_t kAlternateStackSize = 131386;
inline constexpr size_t kTagSize = 84;  // its NUL included

struct ThreadRecord {
  uint8_t alternate_stack[kAlternateStackSize];
  int32_t set_count;      // of this thread
  uint32_t process_type;  // of its latest set-up; 16 bits of it
  uint32_t trace_tid;     // taken at set-up
  void* stack_in_effect;  // null when there is none
  char tag[kTagSize];
};
#if PLOV_ILP32
static_assert(sizeof(ThreadRecord) == 131488);
#endif

// The calling thread's record, made if it has none, and the key first of all. Null, with the reason in the record, when
// it cannot be had. Under xtr_mutex_sem.
ThreadRecord* init_thd(pce_call_record& record);

// Gives the calling thread its type, its id and its alternate stack; `action`, when there is one, then asks for that
// stack. 0, or the result of the step that failed.
int32_t thd_setup(pce_call_record& record, ThreadRecord& thread, uint16_t type, struct sigaction* action);
int32_t thd_unset(pce_call_record& record, ThreadRecord& thread);

// Copies the calling thread's tag, or a text that says why there is none, to `tag` (kTagSize bytes). Always 0.
// Signal-safe.
int32_t get_user_tag(char* tag);

}  // namespace plov::pce

#endif
