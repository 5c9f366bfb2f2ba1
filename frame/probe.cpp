// The probes touch the caller's memory for real, under a SIGSEGV action of their own, and jump out of the fault. Asking
// the kernel instead (a system call that copies) would not test writing without changing what is there.
//
// One probe runs at a time: the action is the process's. What is shared lies below and is valid only while
// xtr_mutex_sem is held.
#include "frame/probe.h"

#include <errno.h>
#include <pthread.h>
#include <sched.h>
#include <setjmp.h>
#include <signal.h>
#include <string.h>

#include <atomic>

#include "frame/crash_action.h"
#include "frame/shared_mutex.h"
#include "xpce.h"
#include "xtr.h"

namespace plov::frame {
namespace {

constexpr int kPatience = 10000;

volatile uint32_t trap_flag;
sigjmp_buf jump_point;
std::atomic<pthread_t> probing_thread;  // a crash handler on another thread looks whether it is its own
struct sigaction saved_action;
std::atomic<bool> saved_is_known;

#if PLOV_ILP32
static_assert(sizeof(struct sigaction) == 140);
#endif

// A thread may fault between the moment in which a probe's action is there and the one in which the probe knows what
// was there before. It waits, or it would meet the default action instead of its own handler.
struct sigaction known_action() {
  for (int i = 0; i < kPatience && !saved_is_known.load(std::memory_order_acquire); ++i) sched_yield();
  return saved_action;
}

// Runs only while a probe does. Signal-safe: traces, jumps, or hands the signal on.
void xpce_handler(int signal, siginfo_t* information, void* context) {
  const int saved_errno = errno;
  // First of all: while another thread than the probing one traces, that probe may end and the next begin.
  const struct sigaction previous = known_action();
  xtr_trace("XPCE___F: -> xpce_handler: xpce_ckptr handler running with signal %d", signal);
  if (pthread_equal(pthread_self(), probing_thread)) {
    trap_flag = 1;
    xtr_trace("XPCE___F: <- xpce_handler: About to Long jump back");
    errno = saved_errno;
    siglongjmp(jump_point, 0);
  }
  // Another thread crashed while a probe ran: its fault belongs to whoever handled SIGSEGV before. SIG_IGN counts as
  // the default action, for the kernel does not ignore a fault either and 1 is no address to call.
  if (previous.sa_handler != SIG_DFL && previous.sa_handler != SIG_IGN) {
    xtr_trace("XPCE___F:    xpce_handler: About to call the 'old' handler for signal %d", signal);
    errno = saved_errno;
    if (previous.sa_flags & SA_SIGINFO)
      previous.sa_sigaction(signal, information, context);
    else
      previous.sa_handler(signal);
  } else {
    xtr_trace("XPCE___F:    xpce_handler: About to Restore old Handler/Re-raise signal %d", signal);
    sigaction(SIGSEGV, &previous, nullptr);
    pthread_kill(pthread_self(), signal);
  }
  xtr_trace("XPCE___F: <- xpce_handler:");
  errno = saved_errno;
}

constexpr struct sigaction probe_action(int flags) {
  struct sigaction action = {};
  action.sa_sigaction = xpce_handler;
  action.sa_flags = SA_SIGINFO | flags;
  return action;
}
constexpr struct sigaction kProbeAction = probe_action(0), kProbeActionOnStack = probe_action(SA_ONSTACK);

int unblock_sigsegv(sigset_t* old_mask) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGSEGV);
  return pthread_sigmask(SIG_UNBLOCK, &set, old_mask);
}

bool install_handler(int32_t result) {
  probing_thread.store(pthread_self(), std::memory_order_relaxed);
  saved_is_known.store(false, std::memory_order_relaxed);
  // Never cleared: a thread that is late may still look.
  const struct sigaction& action = crashes_on_alternate_stacks() ? kProbeActionOnStack : kProbeAction;
  const bool installed = sigaction(SIGSEGV, &action, &saved_action) == 0;
  saved_is_known.store(true, std::memory_order_release);
  if (installed) return true;
  xtr_trace("XPCECK_F: sigaction returned %x with errno of %d", result, errno);
  probing_thread.store(pthread_t{}, std::memory_order_relaxed);
  return false;
}

void restore_handler(int32_t result) {
  const int rc = sigaction(SIGSEGV, &saved_action, nullptr);
  probing_thread.store(pthread_t{}, std::memory_order_relaxed);
  if (rc != 0) xtr_trace("XPCECK_F: restore sigaction returned %x with errno of %d", result, errno);
}

void unlock() {
  const int rc = unlock_shared_mutex();
  if (rc != 0) xtr_trace("XPCECK_F: pthread_mutex_unlock returned %x", rc);
}

// Reads the word at `comprc` and writes the same value back; false when that faulted.
PLOV_TOUCHES_FOREIGN_MEMORY __attribute__((noinline)) bool comprc_usable(uint32_t* comprc) {
  trap_flag = 0;
  if (sigsetjmp(jump_point, 1) != 0 && trap_flag) return false;
  volatile uint32_t* word = comprc;
  const uint32_t value = *word;
  *word = value;
  return true;
}

// Inside a guarded function. No memcpy: the sanitizers follow that one wherever it is called.
inline void move_bytes(void* to, const void* from, size_t size) {
  asm volatile("rep movsb" : "+D"(to), "+S"(from), "+c"(size) : : "memory");
}

// Only the end of a longer range is touched, by design: the cost is the same for every size, and callers pass ranges
// whose beginning they know to be good.
constexpr size_t kTouched = 4;

// Reads the last bytes of the range one at a time, and for a write test puts the same bytes back. Then copies the
// range, all of it, when `copy` is given. False when any of that faulted.
PLOV_TOUCHES_FOREIGN_MEMORY __attribute__((noinline)) bool touch(const void* address, size_t size, bool write,
                                                                 void* copy) {
  if (sigsetjmp(jump_point, 1) != 0 && trap_flag) return false;
  const size_t count = size < kTouched ? size : kTouched;
  volatile uint8_t* bytes = static_cast<uint8_t*>(const_cast<void*>(address)) + (size - count);
  uint8_t seen[kTouched] = {};
  for (size_t i = 0; i < count; ++i) seen[i] = bytes[i];
  if (write)
    for (size_t i = 0; i < count; ++i) bytes[i] = seen[i];
  if (copy) move_bytes(copy, address, size);
  return true;
}

// Counts the bytes before the NUL, at most XPCE_STRING_LIMIT; false when a byte or the count's place faulted.
PLOV_TOUCHES_FOREIGN_MEMORY __attribute__((noinline)) bool count_string(const char* string, uint32_t* count) {
  if (sigsetjmp(jump_point, 1) != 0 && trap_flag) return false;
  const volatile char* bytes = string;
  uint32_t length = 0;
  while (length < XPCE_STRING_LIMIT && bytes[length] != '\0') ++length;
  *static_cast<volatile uint32_t*>(count) = length;
  return true;
}

// `copied` becomes true with the copy; it stays when the test is not made.
int32_t test_range(const void* address, size_t size, Access access, uint32_t* comprc, void* copy, bool* copied) {
  const bool write = access == Access::write;
  const uint32_t passed = write ? XPCE_PROBE_WRITABLE : XPCE_PROBE_READABLE;
  // A probe that cannot be made counts as passed: a broken environment must not make every call fail.
  if (lock_shared_mutex() != 0) {
    *comprc = passed;
    return 0;
  }
  int32_t result = 0;
  sigset_t old_mask;
  int rc = unblock_sigsegv(&old_mask);
  if (rc != 0) {
    xtr_trace("XPCECK_F:   xpce_internal_ckptr: pthread_sigmask returned %u, >%s<", rc, strerror(rc));
    *comprc = passed;
    unlock();
    return 0;
  }
  if (!install_handler(result)) {
    *comprc = passed;
  } else {
    const uintptr_t first = reinterpret_cast<uintptr_t>(address);
    if (!comprc_usable(comprc)) {
      result = 1;
    } else if (first + size < first) {
      xtr_trace("XPCECK_F: size of %u is too large, it caused the pointer wrap", static_cast<uint32_t>(size));
      *comprc = XPCE_PROBE_WRAP;
      result = 2;
    } else {
      const bool good = touch(address, size, write, copy);
      *comprc = good ? passed : XPCE_PROBE_FAULT;
      result = good ? 0 : 2;
      if (copy) *copied = good;
    }
    restore_handler(result);
  }
  rc = pthread_sigmask(SIG_SETMASK, &old_mask, nullptr);
  if (rc != 0)
    xtr_trace("XPCECK_F:   xpce_internal_ckptr: pthread_sigmask(old_mask) returned %u, >%s<", rc, strerror(rc));
  unlock();
  return result;
}

}  // namespace

int32_t probe(const void* address, size_t size, Access access, uint32_t* comprc) {
  return test_range(address, size, access, comprc, nullptr, nullptr);
}

int32_t probe_and_copy(const void* address, size_t size, Access access, void* copy, bool* copied) {
  uint32_t scratch;
  *copied = false;
  return test_range(address, size, access, &scratch, copy, copied);
}

int32_t probe_string(const char* string, uint32_t* length, uint32_t* comprc) {
  uint32_t scratch;
  if (probe(comprc, sizeof *comprc, Access::write, &scratch) != 0) return 1;
  if (lock_shared_mutex() != 0) {
    *comprc = XPCE_PROBE_WRITABLE;
    return 0;
  }
  int32_t result = 0;
  sigset_t old_mask;
  int rc = unblock_sigsegv(&old_mask);
  if (rc != 0) {
    xtr_trace("XPCECK_F:   xpce_ckstr: pthread_sigmask returned %u, >%s<", rc, strerror(rc));
    *comprc = XPCE_PROBE_WRITABLE;
    unlock();
    return 0;
  }
  if (!install_handler(result)) {
    *comprc = XPCE_PROBE_WRITABLE;
  } else {
    trap_flag = 0;
    if (!count_string(string, length)) {
      *comprc = XPCE_PROBE_STRING_FAULT;
      result = 2;
    }
    restore_handler(result);
  }
  rc = pthread_sigmask(SIG_SETMASK, &old_mask, nullptr);
  if (rc != 0) xtr_trace("XPCECK_F:   xpce_ckstr: pthread_sigmask(old_mask) returned %u, >%s<", rc, strerror(rc));
  unlock();
  return result;
}

namespace {

__attribute__((noinline)) bool walk_guarded(void (*walk)(void*), void* context) {
  trap_flag = 0;
  if (sigsetjmp(jump_point, 1) != 0 && trap_flag) return false;
  walk(context);
  return true;
}

__attribute__((noinline)) bool copy_guarded(void* to, const void* from, size_t size) {
  trap_flag = 0;
  if (sigsetjmp(jump_point, 1) != 0 && trap_flag) return false;
  move_bytes(to, from, size);
  return true;
}

// The surroundings of a guarded function, as far as they can be had.
class Guard {
 public:
  Guard()
      : locked_(lock_shared_mutex() == 0),
        unblocked_(locked_ && unblock_sigsegv(&old_mask_) == 0),
        installed_(unblocked_ && install_handler(0)) {}
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;
  ~Guard() {
    if (installed_) restore_handler(0);
    if (unblocked_) pthread_sigmask(SIG_SETMASK, &old_mask_, nullptr);
    if (locked_) unlock();
  }
  bool complete() const { return installed_; }

 private:
  sigset_t old_mask_;
  bool locked_, unblocked_, installed_;
};

}  // namespace

bool probe_walk(void (*walk)(void* context), void* context) {
  {
    const Guard guard;
    if (guard.complete()) return walk_guarded(walk, context);
  }
  // What cannot be guarded counts as passed, as for every probe.
  walk(context);
  return true;
}

Copied copy_foreign(void* to, const void* from, size_t size) {
  const Guard guard;
  if (!guard.complete()) return Copied::unknown;
  return copy_guarded(to, from, size) ? Copied::whole : Copied::fault;
}

bool suspend_probe() {
  if (!pthread_equal(pthread_self(), probing_thread)) return false;
  probing_thread.store(pthread_t{}, std::memory_order_relaxed);
  return true;
}

void resume_probe() {
  probing_thread.store(pthread_self(), std::memory_order_relaxed);
}

PLOV_TOUCHES_FOREIGN_MEMORY void touch_end(const void* address, size_t size) {
  volatile uint8_t* end = static_cast<uint8_t*>(const_cast<void*>(address)) + size;
  for (int i = -4; i < 0; ++i) {
    const uint8_t byte = end[i];
    end[i] = byte;
  }
}

}  // namespace plov::frame

int32_t xpce_internal_ckptr(const void* address, uint32_t size, int32_t write, uint32_t* comprc) {
  using plov::frame::Access;
  return plov::frame::probe(address, size, write ? Access::write : Access::read, comprc);
}

int32_t xpce_ckptr(const void* address, uint32_t size, uint32_t* comprc) {
  return xpce_internal_ckptr(address, size, 1, comprc);
}

int32_t xpce_ckptr_rd(const void* address, uint32_t size, uint32_t* comprc) {
  return xpce_internal_ckptr(address, size, 0, comprc);
}

int32_t xpce_ckstr(const char* string, uint32_t* length, uint32_t* comprc) {
  return plov::frame::probe_string(string, length, comprc);
}
