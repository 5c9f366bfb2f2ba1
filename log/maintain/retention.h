// How many logs of a class and type are kept, and how soon those kept may go after all. Pure.
#ifndef PLOV_LOG_MAINTAIN_RETENTION_H
#define PLOV_LOG_MAINTAIN_RETENTION_H

#include <stdint.h>

#include "xlog.h"

namespace plov::log {

inline constexpr uint16_t kHighestPriority = 3;

// Of one class, by type.
struct Retention {
  struct Rule {
    uint16_t keep;
    uint16_t priority;  // 0 goes first
  } types[256];
};

Retention retention_of(uint8_t event_class, const xlog_configuration& configuration);

}  // namespace plov::log

#endif
