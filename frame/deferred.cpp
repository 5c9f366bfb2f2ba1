#include "frame/deferred.h"

#include "xtr.h"

namespace plov::frame {
namespace {

struct Waiting {
  unsigned levels;
  unsigned count;
  Deferred queue[kDeferredLimit];
};

// Plain data in the library's own thread block: no allocation on first use.
thread_local Waiting waiting __attribute__((tls_model("initial-exec")));

}  // namespace

void lock_taken() {
  ++waiting.levels;
}

void lock_released() {
  if (waiting.levels == 0 || --waiting.levels > 0) return;
  // A record may itself queue further ones while it holds its lock; its own last release takes them.
  while (waiting.count > 0) {
    const Deferred next = waiting.queue[0];
    --waiting.count;
    for (unsigned i = 0; i < waiting.count; ++i) waiting.queue[i] = waiting.queue[i + 1];
    next.record(next);
  }
}

void lock_lost() {
  if (waiting.levels > 0) --waiting.levels;
}

bool lock_held() {
  return waiting.levels > 0;
}

bool record_or_defer(const Deferred& failure) {
  if (!lock_held()) {
    failure.record(failure);
    return true;
  }
  if (waiting.count == kDeferredLimit) {
    xtr_trace("XPCE___F:    record_or_defer: queue is full, failure %d/%d is not recorded", failure.values[0],
              failure.values[1]);
    return false;
  }
  waiting.queue[waiting.count++] = failure;
  return true;
}

void forget_locks() {
  waiting.levels = waiting.count = 0;
}

}  // namespace plov::frame
