// The few fields of the system information map that the log looks at.
#ifndef PLOV_LOG_SYSTEM_FIELD_H
#define PLOV_LOG_SYSTEM_FIELD_H

#include <stddef.h>
#include <stdint.h>

namespace plov::log {

inline constexpr uint32_t kReleaseField = 5;
inline constexpr uint32_t kMicrocodeField = 16;  // not 0: microcode entries are not recorded
inline constexpr uint32_t kAnalysisField = 91;   // 1: problem analysis is told of events

// Reads a field's low bytes into `value`, zero where the field is shorter. `value` changes on success only. Result and
// code are the map's; any result but 0 is a failure.
int32_t read_system_field(uint32_t id, void* value, size_t size, uint32_t* code);

}  // namespace plov::log

#endif
