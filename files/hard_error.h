// Failures of a device, recorded in the system log.
#ifndef PLOV_FILES_HARD_ERROR_H
#define PLOV_FILES_HARD_ERROR_H

#include <stdint.h>

namespace plov::files {

// The failing operation and step, as service staff find it in the log entry.
inline constexpr int32_t kHardErrorUnlink = 2;
inline constexpr int32_t kHardErrorStatfs = 3;
inline constexpr int32_t kHardErrorSize = 6;
inline constexpr int32_t kHardErrorDate = 7;
inline constexpr int32_t kHardErrorOpen = 11;
inline constexpr int32_t kHardErrorReadDirectory = 12;
inline constexpr int32_t kHardErrorCopyWrite = 13;
inline constexpr int32_t kHardErrorCopyRead = 14;
inline constexpr int32_t kHardErrorOpenDirectory = 15;

// Records the failure when `comprc_value` is the errno of a failing device. Result, the grade of the failing call: 8
// for such an error, 2 for any other value. While this thread holds a lock under which nothing may be recorded, the
// entry is written when it has released the last; a hard error met while one is being recorded is only traced.
uint32_t xdfc_hard_err(int32_t error_id, uint32_t comprc_value, const char* path);

}  // namespace plov::files

#endif
