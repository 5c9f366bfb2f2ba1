// The copy of class-0 events to the system log.
#ifndef PLOV_LOG_SYSTEM_LOG_H
#define PLOV_LOG_SYSTEM_LOG_H

#include "xlog.h"

namespace plov::log {

// Hands the event to the system log as the text that the Java side makes of it: now, or when the thread has released
// its last lock. Whatever goes wrong only stops the copy.
void copy_to_system_log(const xlog_log_request& request);

// Whether the copy is on: decided at the first call of a process and never looked at again.
bool system_log_wanted();

}  // namespace plov::log

#endif
