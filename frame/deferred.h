// What must not be done while a lock is held: failures that are themselves to be recorded in the log, for recording
// takes locks of its own, and calls of the Java side. Each waits in a small queue of its thread and is done when the
// thread has released its last lock.
#ifndef PLOV_FRAME_DEFERRED_H
#define PLOV_FRAME_DEFERRED_H

#include <stdint.h>

namespace plov::frame {

inline constexpr unsigned kDeferredLimit = 8;

// One failure: what records it, and the plain values it needs.
struct Deferred {
  void (*record)(const Deferred&);
  int32_t values[4];
};

// The thread has taken, has released, a lock under which nothing may be recorded. Levels are counted; the last release
// records what waits. Called by the owners of those locks.
void lock_taken();
void lock_released();

// Released in a crash: nothing is recorded there, what waits is left to the next release. Signal-safe.
void lock_lost();

// Whether this thread holds such a lock.
bool lock_held();

// Records now, or queues while a lock is held. What does not fit into the queue is traced, and false says that it will
// not be recorded.
bool record_or_defer(const Deferred& failure);

// The thread holds nothing and waits for nothing: for a forked child.
void forget_locks();

}  // namespace plov::frame

#endif
