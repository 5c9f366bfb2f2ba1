// The machine-wide log lock, as the log manager's own functions use it. The exported step is xlog_access_sem.
#ifndef PLOV_LOG_LOCK_H
#define PLOV_LOG_LOCK_H

#include <stdint.h>

namespace plov::log {

// Whether this thread holds the lock. Signal-safe.
bool lock_held();

// Gives one level back without recording what waited for the release: for the crash guard. Should the thread outlive
// its crash, the next release records it. Result: the semaphore's code. Signal-safe.
int32_t unlock_in_crash();

}  // namespace plov::log

#endif
