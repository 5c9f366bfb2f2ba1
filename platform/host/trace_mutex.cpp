// The process-wide mutex. A fork waits for its holder, so that the child never inherits a probe that another thread had
// half made: the SIGSEGV action of the process would be the probe's for ever.
#include <errno.h>

#include "xtr.h"

pthread_mutex_t xtr_mutex_sem = PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP;

namespace {

thread_local bool taken_for_fork __attribute__((tls_model("initial-exec")));

void before_fork() {
  taken_for_fork = pthread_mutex_lock(&xtr_mutex_sem) == 0;  // EDEADLK: the forking thread holds it
}

void after_fork_in_parent() {
  if (taken_for_fork) pthread_mutex_unlock(&xtr_mutex_sem);
  taken_for_fork = false;
}

void after_fork_in_child() {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
  pthread_mutex_init(&xtr_mutex_sem, &attributes);
  pthread_mutexattr_destroy(&attributes);
  taken_for_fork = false;
}

__attribute__((constructor)) void watch_forks() {
  pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
}

}  // namespace
