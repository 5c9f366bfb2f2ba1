// Timed mutexes and memory of the process-control kernel.
#include <errno.h>
#include <string.h>
#include <time.h>

#include "pce.h"
#include "platform/host/pce_failure.h"
#include "platform/host/pce_queue.h"
#include "plovmemdebug.h"
#include "xtr.h"

namespace {

int32_t fail(pce_call_record* record, uint32_t reason, uint32_t data) {
  plov::host::note_failure(record, reason, data);
  return 8;
}

// The thread sanitizer knows pthread_mutex_timedlock alone, and so follows the clock that may be set.
#ifdef __SANITIZE_THREAD__
constexpr clockid_t kClock = CLOCK_REALTIME;
int lock_until(pthread_mutex_t* mutex, const timespec& limit) {
  return pthread_mutex_timedlock(mutex, &limit);
}
#else
constexpr clockid_t kClock = CLOCK_MONOTONIC;
int lock_until(pthread_mutex_t* mutex, const timespec& limit) {
  return pthread_mutex_clocklock(mutex, kClock, &limit);
}
#endif

int lock(pthread_mutex_t* mutex, uint32_t timeout) {
  if (timeout == PCE_WAIT_FOREVER) return pthread_mutex_lock(mutex);
  timespec limit;
  clock_gettime(kClock, &limit);
  limit.tv_sec += timeout / 1000;
  limit.tv_nsec += static_cast<long>(timeout % 1000) * 1000000;
  if (limit.tv_nsec >= 1000000000) {
    limit.tv_nsec -= 1000000000;
    ++limit.tv_sec;
  }
  return lock_until(mutex, limit);
}

}  // namespace

int32_t pce_pthd_mutex_req(pce_call_record* record, pthread_mutex_t* mutex, uint32_t timeout, uint32_t reason) {
  const int rc = lock(mutex, timeout);
  if (rc != 0) {
    xtr_trace("PCE____F:    pce_pthd_mutex_req: Error for ID= 0x%X, addr= %p, timeout was %u. Error is %d", reason,
              mutex, timeout, rc);
    return fail(record, reason, static_cast<uint32_t>(rc));
  }
  if (mutex == &xtr_mutex_sem) plov::host::hold_events();
  return 0;
}

int32_t pce_pthd_mutex_rel(pce_call_record* record, pthread_mutex_t* mutex, uint32_t reason) {
  const int rc = pthread_mutex_unlock(mutex);
  if (rc != 0) {
    xtr_trace("PCE____F:    pce_pthd_mutex_rel: Error for ID= 0x%X, addr= %p. Error is %d", reason, mutex, rc);
    return fail(record, reason, static_cast<uint32_t>(rc));
  }
  if (mutex == &xtr_mutex_sem) plov::host::release_events();
  return 0;
}

int32_t pce_malloc(pce_call_record* record, void** block, uint32_t size) {
  *block = plovmemdebug_malloc(size, __FILE__, __LINE__);
  if (*block) return 0;
  xtr_trace("PCE____F:    pce_malloc: malloc failed for size %u", size);
  return fail(record, ENOMEM, size);
}

int32_t pce_free(pce_call_record*, void* block) {
  plovmemdebug_free(block, __FILE__, __LINE__);
  return 0;
}
