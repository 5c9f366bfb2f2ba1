#include "sim/process_mutex.h"

#include <pthread.h>

#include "frame/deferred.h"
#include "sim/semaphore.h"

namespace plov::sim {
namespace {

pthread_once_t once = PTHREAD_ONCE_INIT;
pthread_mutex_t process_mutex;

struct Guarded {
  unsigned levels;
  int cancel_state;
};
thread_local Guarded guarded __attribute__((tls_model("initial-exec")));

void create_mutex() {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
  pthread_mutex_init(&process_mutex, &attributes);
  pthread_mutexattr_destroy(&attributes);
}

// A child of fork holds nothing, whatever its parent was doing. A load that the parent is in goes on there.
void in_forked_child() {
  create_mutex();
  if (guarded.levels > 0) pthread_setcancelstate(guarded.cancel_state, nullptr);
  guarded = {};
  forget_semaphore();
  frame::forget_locks();
}

void initialise() {
  create_mutex();
  pthread_atfork(nullptr, nullptr, in_forked_child);
}

}  // namespace

void begin_guarded() {
  int before;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
  if (guarded.levels++ == 0) guarded.cancel_state = before;
  frame::lock_taken();
}

void end_guarded() {
  if (guarded.levels == 0) return;  // in a child forked meanwhile
  // What is recorded now may take the map again, and must find cancellation as it is to leave it.
  if (--guarded.levels == 0) pthread_setcancelstate(guarded.cancel_state, nullptr);
  frame::lock_released();
}

ProcessLock::ProcessLock() {
  pthread_once(&once, initialise);
  begin_guarded();
  held_ = pthread_mutex_lock(&process_mutex) == 0;
}

ProcessLock::~ProcessLock() {
  if (held_) pthread_mutex_unlock(&process_mutex);
  end_guarded();
}

}  // namespace plov::sim
