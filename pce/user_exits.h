// The user exits of a crash.
#ifndef PLOV_PCE_USER_EXITS_H
#define PLOV_PCE_USER_EXITS_H

#include <signal.h>

namespace plov::pce {

// Calls the first registered exit. Signal-safe; the exit must be.
void callUserExits(int signal, siginfo_t* information, void* context);

}  // namespace plov::pce

#endif
