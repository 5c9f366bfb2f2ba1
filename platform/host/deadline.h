// How long a wait may still take, on the clock that nobody sets. Signal-safe.
#ifndef PLOV_HOST_DEADLINE_H
#define PLOV_HOST_DEADLINE_H

#include <limits.h>
#include <time.h>

#include <algorithm>

#include "pce.h"

namespace plov::host {

class Deadline {
 public:
  explicit Deadline(uint32_t timeout) : forever_(timeout == PCE_WAIT_FOREVER), end_(now() + timeout) {}

  // Milliseconds as poll() takes them: 0 when the time is over, -1 for ever.
  int left() const { return forever_ ? -1 : static_cast<int>(std::clamp<int64_t>(end_ - now(), 0, INT_MAX)); }

 private:
  static int64_t now() {
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<int64_t>(time.tv_sec) * 1000 + time.tv_nsec / 1000000;
  }

  bool forever_;
  int64_t end_;
};

}  // namespace plov::host

#endif
