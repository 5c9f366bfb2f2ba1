// The copy of class-0 events to the system log.
#ifndef PLOV_LOG_SYSTEM_LOG_H
#define PLOV_LOG_SYSTEM_LOG_H

namespace plov::log {

// Whether the copy is on: decided at the first call of a process and never looked at again.
bool system_log_wanted();

}  // namespace plov::log

#endif
