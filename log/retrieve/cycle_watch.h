// Notices that a chain of the caller's runs in a circle.
#ifndef PLOV_LOG_RETRIEVE_CYCLE_WATCH_H
#define PLOV_LOG_RETRIEVE_CYCLE_WATCH_H

#include <stdint.h>

namespace plov::log {

// Shown each node in turn, remembers one of them, ever farther apart: a circle comes back to it.
class CycleWatch {
 public:
  bool passed_before(const void* node) {
    if (node == mark_) return true;
    if (++steps_ == limit_) {
      mark_ = node;
      limit_ *= 2;
    }
    return false;
  }

 private:
  const void* mark_ = nullptr;
  uint64_t steps_ = 0, limit_ = 1;
};

}  // namespace plov::log

#endif
