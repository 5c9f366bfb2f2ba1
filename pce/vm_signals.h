// The signals of a process in which a Java VM was before set-up. The VM makes its null checks and stack checks by
// taking the fault, and drops what a closed connection raises: none of that is a crash.
#ifndef PLOV_PCE_VM_SIGNALS_H
#define PLOV_PCE_VM_SIGNALS_H

#include <signal.h>

namespace plov::pce {

// Looks for the VM's judge of signals, before the handlers are there. Takes the loader's lock.
void find_vm();

// Whether an action is the VM's own, of one that has come since.
bool is_vms_handler(const struct sigaction& action);

// True when the signal was the VM's business and is done with. A fault that is not is left as it came. Signal-safe.
bool vm_took(int signal, siginfo_t* information, void* context);

}  // namespace plov::pce

#endif
