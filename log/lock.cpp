#include "log/lock.h"

#include <pthread.h>

#include <atomic>

#include "frame/deferred.h"
#include "log/error_handler.h"
#include "log/guard.h"
#include "xlog.h"
#include "xsem.h"
#include "xtr.h"

namespace plov::log {
namespace {

std::atomic<xsem_handle_t> semaphore;  // null until it is obtained

// What this thread holds. Cancellation is off while it holds anything: a cancelled holder would leave half a log
// behind.
struct Holder {
  unsigned levels;
  bool cancel_saved;  // still so after a crash that the thread outlived
  int cancel_state;
};
thread_local Holder holder __attribute__((tls_model("initial-exec")));

// A child of fork holds nothing, whatever its parent was doing.
void in_forked_child() {
  if (holder.cancel_saved) pthread_setcancelstate(holder.cancel_state, nullptr);
  holder = {};
  forget_handlers_in_child();
  forget_guard_in_child();
  frame::forget_locks();
}

int32_t xlog_init() {
  xtr_trace("XLOG   F: -> xlog_init");
  xtr_trace("XLOG   F: armed = %d", semaphore.load() ? 1 : 0);
  int32_t result = 0;
  if (!semaphore.load()) {
    static pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_once(&once, [] { pthread_atfork(nullptr, nullptr, in_forked_child); });
    int32_t crc = 0;
    xsem_handle_t handle = nullptr;
    result = xsem_getSemaphoreHandle(&handle, XLOG_SEMAPHORE_KEY, &crc);
    if (result == 0)
      semaphore.store(handle);
    else
      xtr_trace("XLOG   F: Error obtaining semaphore (error=%d, crc=%d)", result, crc);
  }
  xtr_trace("XLOG   F: <- xlog_init");
  return result;
}

// Only the component code counts: a semaphore call that fails with code 0 is success to the callers of both steps
// below.
int32_t xlog_lock_buf() {
  xtr_trace("XLOG   F: -> xlog_lock_buf");
  int32_t crc = 0;
  const int32_t result = xsem_lockSemaphore(semaphore, XSEM_WAIT_FOREVER, &crc);
  if (crc == 0) {
    ++holder.levels;
    int before;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
    if (!holder.cancel_saved) holder.cancel_state = before;
    holder.cancel_saved = true;
    frame::lock_taken();
    xtr_trace("XLOG   F: Log semaphore locked for PID %x TID %x", xtr_getpid(), xtr_gettid());
  } else {
    xtr_trace("XLOG   F: failure locking log sem, with ret = %d, crc = %d", result, crc);
  }
  xtr_trace("XLOG   F: <- xlog_lock_buf");
  return crc;
}

int32_t release_level() {
  xtr_trace("XLOG   F: -> xlog_unlock_buf");
  int32_t crc = 0;
  const int32_t result = xsem_unlockSemaphore(semaphore, &crc);
  if (crc == 0)
    xtr_trace("XLOG   F: Log semaphore unlocked for PID %x TID %x", xtr_getpid(), xtr_gettid());
  else
    xtr_trace("XLOG   F: failure unlocking log sem, with ret = %d, crc = %d", result, crc);
  xtr_trace("XLOG   F: <- xlog_unlock_buf");
  return crc;
}

int32_t xlog_unlock_buf() {
  const int32_t crc = release_level();
  // Every other code than this one says that the level is gone, with a removed semaphore too.
  if (crc != static_cast<int32_t>(XSEM_NOT_HOLDER) && holder.levels > 0) {
    const bool last = --holder.levels == 0;
    // What is recorded now takes the lock again, and must find cancellation as it is to leave it.
    if (last) {
      holder.cancel_saved = false;
      pthread_setcancelstate(holder.cancel_state, nullptr);
    }
    frame::lock_released();
  }
  return crc;
}

}  // namespace

bool lock_held() {
  return holder.levels > 0;
}

int32_t unlock_in_crash() {
  const int32_t crc = release_level();
  if (crc != static_cast<int32_t>(XSEM_NOT_HOLDER) && holder.levels > 0) {
    --holder.levels;
    frame::lock_lost();
  }
  return crc;
}

}  // namespace plov::log

int32_t xlog_access_sem(int32_t operation, uint32_t* comprc) {
  using namespace plov::log;
  xtr_trace("XLOG   F: -> xlog_access_sem");
  *comprc = 0;
  if (!semaphore.load()) xlog_init();
  int32_t code = 0;
  if (operation == XLOG_SEM_LOCK)
    code = xlog_lock_buf();
  else if (operation == XLOG_SEM_UNLOCK)
    code = xlog_unlock_buf();
  if (code != 0) *comprc = static_cast<uint32_t>(code);
  xtr_trace("XLOG   F: <- xlog_access_sem");
  return code == 0 ? 0 : 2;
}
