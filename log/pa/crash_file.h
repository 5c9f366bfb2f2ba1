// The crash file of one event: its name, its content and its way to the disk.
#ifndef PLOV_LOG_PA_CRASH_FILE_H
#define PLOV_LOG_PA_CRASH_FILE_H

#include "frame/call.h"
#include "xlog.h"

namespace plov::log::pa {

inline constexpr size_t kCrashNameSize = 36;

// Pure.
void crash_file_name(char (&name)[kCrashNameSize], uint32_t return_code, const xlog_timestamp& now);
xlog_crash_file crash_file_content(const xlog_event_identity& event);

// Writes the file, its directory made when it is missing; a failure is left in `call`.
void write_crash_file(frame::Call& call, const xlog_event_identity& event, uint32_t return_code);

}  // namespace plov::log::pa

#endif
