// Why a retrieval failed: the caller's two codes, and what the error handler is told.
#ifndef PLOV_LOG_RETRIEVE_FAILURE_H
#define PLOV_LOG_RETRIEVE_FAILURE_H

#include <errno.h>
#include <stdint.h>

#include "xlog.h"

namespace plov::log {

struct Failure {
  int32_t sysrc = 0;  // 0: there is none
  uint32_t comprc = 0;
  uint16_t level = XLOG_LEVEL_NONE;  // above NONE the error handler has the last word on sysrc
  uint32_t reason = 0;

  explicit operator bool() const { return sysrc != 0; }
};

// The file cannot be read or contradicts itself; `reason` is an errno, a byte count, or the offset where it does.
inline Failure damaged(uint32_t comprc, uint32_t reason) {
  return {2, comprc, XLOG_LEVEL_DAMAGED, reason};
}

inline Failure no_memory_for_result(uint32_t comprc) {
  return {2, comprc, XLOG_LEVEL_RECORD, static_cast<uint32_t>(errno)};
}

}  // namespace plov::log

#endif
