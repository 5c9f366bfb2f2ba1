// A copy of a log that is no larger than what its receivers take.
#ifndef PLOV_LOG_MAINTAIN_TRIM_H
#define PLOV_LOG_MAINTAIN_TRIM_H

#include <stdint.h>

namespace plov::log {

struct TrimResult {
  int32_t sysrc;
  uint32_t comprc;
  const char* message;  // what failed, as Java is told; NULL when all went well
};

// Copies the log that `destination` asks for by its name to that file, cut down to XLOG_TRIM_SIZE.
TrimResult trim_log(const char* destination);

}  // namespace plov::log

#endif
