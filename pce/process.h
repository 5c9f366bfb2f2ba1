// The steps of the first set-up of a process and of its last unset. Under xtr_mutex_sem, but for the first of them.
#ifndef PLOV_PCE_PROCESS_H
#define PLOV_PCE_PROCESS_H

#include <signal.h>

#include "pce.h"
#include "pce/thread_record.h"

namespace plov::pce {

// What takes the loader's lock. Never under xtr_mutex_sem: a module's constructor, which is run under that lock, may
// wait for a probe.
void prepare_process_setup();

// Puts the handler of the type into force, `action` telling how, and registers the process. What was done before a step
// that fails is undone. 0, or the largest result.
int32_t process_setup(pce_call_record& record, uint16_t type, struct sigaction& action, ThreadRecord& thread);

// Puts the earlier actions back and takes the process off the daemon's table, except in a crash.
int32_t proc_unset(pce_call_record& record);

}  // namespace plov::pce

#endif
