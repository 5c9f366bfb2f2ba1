#include "frame/shared_mutex.h"

#include <errno.h>
#include <pthread.h>
#include <time.h>

#include <algorithm>

#include "frame/deferred.h"
#include "xtr.h"

namespace plov::frame {
namespace {

constexpr uint32_t kTimeout = 90000, kId = 0x750;

// Whether this thread holds the mutex, takes it or gives it back.
thread_local volatile bool in_hand __attribute__((tls_model("initial-exec")));

thread_local Patience patience __attribute__((tls_model("initial-exec"))) = Patience::endless;

constexpr time_t kCrashPatience = 30;  // seconds, like every other wait of a crash

// The thread sanitizer knows pthread_mutex_timedlock alone, and so follows the clock that may be set.
int lock_until(pthread_mutex_t* mutex, time_t seconds) {
  timespec limit;
#ifdef __SANITIZE_THREAD__
  clock_gettime(CLOCK_REALTIME, &limit);
  limit.tv_sec += seconds;
  return pthread_mutex_timedlock(mutex, &limit);
#else
  clock_gettime(CLOCK_MONOTONIC, &limit);
  limit.tv_sec += seconds;
  return pthread_mutex_clocklock(mutex, CLOCK_MONOTONIC, &limit);
#endif
}

int lock_in_crash() {
  if (patience == Patience::none) return ETIMEDOUT;
  const int rc = lock_until(&xtr_mutex_sem, kCrashPatience);
  if (rc == ETIMEDOUT) patience = Patience::none;
  return rc;
}

}  // namespace

int lock_shared_mutex() {
  if (in_hand) return EDEADLK;
  in_hand = true;
  const int rc = patience == Patience::endless ? pthread_mutex_lock(&xtr_mutex_sem) : lock_in_crash();
  if (rc != 0) in_hand = false;
  return rc;
}

int unlock_shared_mutex() {
  const int rc = pthread_mutex_unlock(&xtr_mutex_sem);
  in_hand = false;
  return rc;
}

CrashPatience::CrashPatience() : before_(patience) {
  if (patience == Patience::endless) patience = Patience::bounded;
}

CrashPatience::~CrashPatience() {
  patience = before_;
}

SharedMutex::SharedMutex(pce_call_record& record) : record_(record) {
  if (in_hand) {
    if (record.comprc == 0) {
      record.comprc = kId;
      record.data = EDEADLK;
    }
    record.sysrc = std::max(record.sysrc, 8u);
    return;
  }
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel_state_);
  lock_taken();
  in_hand = true;
  held_ = pce_pthd_mutex_req(&record, &xtr_mutex_sem, kTimeout, kId) == 0;
  if (held_) return;
  in_hand = false;
  lock_released();
  pthread_setcancelstate(cancel_state_, nullptr);
}

SharedMutex::~SharedMutex() {
  if (!held_) return;
  // Before, not after: this call also records what waited, and that takes probes, which take the mutex.
  in_hand = false;
  pce_pthd_mutex_rel(&record_, &xtr_mutex_sem, kId);
  pthread_setcancelstate(cancel_state_, nullptr);
  lock_released();
}

}  // namespace plov::frame
