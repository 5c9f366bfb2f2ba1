#include "log/guard.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "frame/crash_action.h"
#include "frame/shared_mutex.h"
#include "log/error_handler.h"
#include "log/lock.h"
#include "xlog.h"
#include "xtr.h"

uint32_t xlog_sig_flag;

namespace plov::log {
namespace {

// Written by the thread that holds the log lock, read by whichever thread faults.
struct sigaction new_action;
struct sigaction previous_action;
pthread_t guarded_thread;

bool has_handler(const struct sigaction& action) {
  return action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN;
}

// Sends the signal again with its original information, so that the crash report has the true address.
void send_again(int signal, siginfo_t* information) {
  if (syscall(SYS_rt_tgsigqueueinfo, getpid(), xtr_gettid(), signal, information) != 0)
    pthread_kill(pthread_self(), signal);
}

void restore_and_send_again(int signal, siginfo_t* information) {
  sigaction(SIGSEGV, &previous_action, nullptr);
  frame::displace_crash_action(nullptr);
  xlog_sig_flag = 0;
  guarded_thread = pthread_t{};
  send_again(signal, information);
}

// Signal context: frees the semaphore, restores an action, sends the signal again. Allocates nothing, takes no mutex.
void xlog_handler(int signal, siginfo_t* information, void* context) {
  const int saved_errno = errno;
  if (pthread_equal(pthread_self(), guarded_thread)) {
    xtr_trace("XLOG   F: Log Signal handler entered with signum of %d", signal);
    if (signal == SIGSEGV) {
      // All levels: an operation may have run inside another. A code says that nothing is held any more.
      int32_t rc = unlock_in_crash();
      if (rc != 0) xtr_trace("XLOG   F: Log release semaphore failed with rc of %x", rc);
      while (rc == 0) rc = unlock_in_crash();
      forget_handlers_in_crash();
      restore_and_send_again(signal, information);
    }
  } else if (has_handler(previous_action)) {
    errno = saved_errno;
    if (previous_action.sa_flags & SA_SIGINFO)
      previous_action.sa_sigaction(signal, information, context);
    else
      previous_action.sa_handler(signal);
  } else {
    restore_and_send_again(signal, information);
  }
  errno = saved_errno;
}

void install() {
  memset(&new_action, 0, sizeof new_action);
  new_action.sa_sigaction = xlog_handler;
  new_action.sa_flags = SA_SIGINFO;
  guarded_thread = pthread_self();
  // Known before the guard is there, for another thread may fault the moment it is.
  sigaction(SIGSEGV, nullptr, &previous_action);
  // A process that handles crashes on an alternate stack must still be able to when the stack overflows inside a log
  // operation.
  new_action.sa_flags |= previous_action.sa_flags & SA_ONSTACK;
  const int rc = sigaction(SIGSEGV, &new_action, &previous_action);
  if (rc == 0) {
    frame::displace_crash_action(&previous_action);
    xlog_sig_flag = 1;
    xtr_trace("XLOG___D: logger signal handler installed");
  } else {
    guarded_thread = pthread_t{};
    xtr_trace("XLOG___F: installing logger signal handler failed, errno is %d", errno);
  }
}

void remove() {
  frame::displace_crash_action(nullptr);
  if (sigaction(SIGSEGV, &previous_action, nullptr) == 0)
    xtr_trace("XLOG___D: logger signal handler removed");
  else
    xtr_trace("XLOG___F: removing logger signal handler failed, errno is %d", errno);
  xlog_sig_flag = 0;
  guarded_thread = pthread_t{};
}

}  // namespace

void forget_guard_in_child() {
  // The kernel's word, not the flag's: a thread of the parent may have been half way between the two.
  struct sigaction current;
  if (sigaction(SIGSEGV, nullptr, &current) == 0 && current.sa_sigaction == xlog_handler)
    sigaction(SIGSEGV, &previous_action, nullptr);
  frame::displace_crash_action(nullptr);
  xlog_sig_flag = 0;
  guarded_thread = pthread_t{};
}

}  // namespace plov::log

int32_t xlog_sig_handler(int32_t flag) {
  xtr_trace("XLOG   F: -> xlog_sig_handler");
  // EDEADLK, when this thread holds the mutex already, is as good as having it.
  const bool locked = plov::frame::lock_shared_mutex() == 0;
  if (flag == 1)
    plov::log::install();
  else if (flag == 2)
    plov::log::remove();
  else
    xtr_trace("XLOG   F: Invalid flag of %x passed", flag);
  if (locked) plov::frame::unlock_shared_mutex();
  xtr_trace("XLOG   F: <- xlog_sig_handler");
  return 0;
}
