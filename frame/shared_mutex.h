// xtr_mutex_sem, as this library takes it. A signal may interrupt a thread in the few instructions in which the mutex
// is taken and its owner not yet written down; a handler that tried it there would wait for its own thread for ever.
// So the thread says beforehand that it is about to.
#ifndef PLOV_FRAME_SHARED_MUTEX_H
#define PLOV_FRAME_SHARED_MUTEX_H

#include "pce.h"

namespace plov::frame {

// As pthread_mutex_lock and _unlock, which they are; EDEADLK also when this thread is in the middle of either.
// Signal-safe in that sense.
int lock_shared_mutex();
int unlock_shared_mutex();

// While one lives its thread, which has crashed, waits 30 seconds for the mutex, once, and then goes on without it:
// ETIMEDOUT. The mutex's holder may itself wait for ever for what that thread had in hand, a lock of the allocator for
// one, or may have crashed too, and the report would never be sent. Signal-safe.
enum class Patience : uint8_t { endless, bounded, none };
class CrashPatience {
 public:
  CrashPatience();
  CrashPatience(const CrashPatience&) = delete;
  CrashPatience& operator=(const CrashPatience&) = delete;
  ~CrashPatience();

 private:
  Patience before_;
};

// The same with the process kernel's calls, whose events then wait for the release, and with the failures of others
// (frame/deferred.h). The holder cannot be cancelled. The code 0x750 is left in the record when one of them fails.
class SharedMutex {
 public:
  explicit SharedMutex(pce_call_record& record);
  SharedMutex(const SharedMutex&) = delete;
  SharedMutex& operator=(const SharedMutex&) = delete;
  ~SharedMutex();
  bool held() const { return held_; }

 private:
  pce_call_record& record_;
  bool held_ = false;
  int cancel_state_ = 0;
};

}  // namespace plov::frame

#endif
