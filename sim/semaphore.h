// The map's semaphore: one operation at a time, of all processes of the machine. The kernel gives it back for a process
// that dies inside.
#ifndef PLOV_SIM_SEMAPHORE_H
#define PLOV_SIM_SEMAPHORE_H

#include <stdint.h>

namespace plov::sim {

// Sets up the message block when this process has not yet, and takes the semaphore. The thread that holds it may take
// it again, and gives it back as often. 0, or the semaphore's error.
int32_t xsim_getsem();

// 0 or -1.
int32_t xsim_unlock_buf();

// For a forked child: it holds nothing.
void forget_semaphore();

}  // namespace plov::sim

#endif
