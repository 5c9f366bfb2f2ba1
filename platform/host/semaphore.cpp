// One lock a key: a System V semaphore of value 0 while it is free and 1 while it is held. A fresh set is 0, so whoever
// makes it need not initialise it and nobody can meet it half made. The kernel undoes a dead process's holding.
//
// The kernel counts per process. Which thread holds the lock, and how often, is kept here.
#include <errno.h>
#include <pthread.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <time.h>

#include <algorithm>
#include <atomic>

#include "xsem.h"
#include "xtr.h"

struct xsem_semaphore {
  uint32_t key;
  std::atomic<int> id;           // of the set; looked up again when the set was removed
  std::atomic<uint32_t> holder;  // thread, 0 none. A forked child has other thread ids, so it holds nothing.
  uint32_t levels;               // of the holder, and its alone
};

namespace {

constexpr uint32_t kHandles = 32;
constexpr int64_t kPatience = 3000;  // ms between two lines about a wait

xsem_semaphore handles[kHandles];
uint32_t handle_count;
pthread_mutex_t handles_mutex = PTHREAD_MUTEX_INITIALIZER;

pthread_key_t thread_end_key;
bool thread_end_key_made;

int32_t fail(int32_t* crc, uint32_t code) {
  *crc = static_cast<int32_t>(code);
  return 8;
}

int32_t fail_with_errno(int32_t* crc, int error) {
  return fail(crc, XSEM_SYSTEM_ERROR + static_cast<uint32_t>(error));
}

// The set of a key, made when it is missing; 0 or the failure's code. Every user of the machine shares the lock.
uint32_t find_set(uint32_t key, int* id) {
  const int found = semget(static_cast<key_t>(key), 1, IPC_CREAT | 0666);
  if (found < 0) return XSEM_SYSTEM_ERROR + static_cast<uint32_t>(errno);
  semid_ds status = {};
  union {
    semid_ds* buffer;
  } argument = {&status};
  if (semctl(found, 0, IPC_STAT, argument) != 0) return XSEM_SYSTEM_ERROR + static_cast<uint32_t>(errno);
  if (status.sem_nsems != 1) return XSEM_FOREIGN_SET;
  *id = found;
  return 0;
}

// Gives the kernel's semaphore back. The holder is cleared first: the moment the semaphore is free the next one, maybe
// a thread of this process, writes itself in.
int give_back(xsem_semaphore& semaphore) {
  const int id = semaphore.id.load(std::memory_order_relaxed);
  semaphore.levels = 0;
  semaphore.holder.store(0, std::memory_order_release);
  sembuf down = {0, -1, SEM_UNDO | IPC_NOWAIT};
  while (semop(id, &down, 1) != 0)
    if (errno != EINTR) return errno;
  return 0;
}

// A thread that ends, or is cancelled, while it holds a lock would leave it held for as long as its process lives.
void thread_ends(void*) {
  const uint32_t thread = xtr_gettid();
  for (xsem_semaphore& semaphore : handles) {
    if (semaphore.holder.load(std::memory_order_relaxed) != thread) continue;
    xtr_trace("XSEM   F:    xsem: thread %u ends while it holds semaphore 0x%X, released", thread, semaphore.key);
    give_back(semaphore);
  }
}

void lock_handles() {
  pthread_mutex_lock(&handles_mutex);
}

void unlock_handles() {
  pthread_mutex_unlock(&handles_mutex);
}

void after_fork_in_child() {
  for (xsem_semaphore& semaphore : handles) {
    semaphore.holder.store(0, std::memory_order_relaxed);
    semaphore.levels = 0;
  }
  unlock_handles();
}

__attribute__((constructor)) void prepare() {
  thread_end_key_made = pthread_key_create(&thread_end_key, thread_ends) == 0;
  pthread_atfork(lock_handles, unlock_handles, after_fork_in_child);
}

int64_t now_in_ms() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// Waits for the kernel's semaphore until `deadline`, or without end when that is negative; 0, or the failure's code.
uint32_t take(xsem_semaphore& semaphore, int64_t deadline) {
  for (int64_t waiting_since = -1;;) {
    sembuf operations[2] = {{0, 0, 0}, {0, 1, SEM_UNDO}};
    const int id = semaphore.id.load(std::memory_order_relaxed);
    const int64_t now = now_in_ms();
    if (waiting_since < 0) waiting_since = now;
    const int64_t left = deadline < 0 ? kPatience : std::clamp<int64_t>(deadline - now, 0, kPatience);
    const timespec limit = {static_cast<time_t>(left / 1000), static_cast<long>(left % 1000) * 1000000};
    if (semtimedop(id, operations, 2, &limit) == 0) return 0;
    if (errno == EAGAIN) {
      if (deadline >= 0 && now_in_ms() >= deadline) return XSEM_TIMED_OUT;
      xtr_trace("XSEM   F:    xsem_lockSemaphore: waiting for semaphore 0x%X since %d ms, last used by process %d",
                semaphore.key, static_cast<int>(now_in_ms() - waiting_since), semctl(id, 0, GETPID));
    } else if (errno == EIDRM || errno == EINVAL) {
      int again = -1;
      if (const uint32_t code = find_set(semaphore.key, &again)) return code;
      semaphore.id.store(again, std::memory_order_relaxed);
      xtr_trace("XSEM   F:    xsem_lockSemaphore: semaphore 0x%X was removed, made again", semaphore.key);
    } else if (errno != EINTR) {
      return XSEM_SYSTEM_ERROR + static_cast<uint32_t>(errno);
    }
  }
}

}  // namespace

int32_t xsem_getSemaphoreHandle(xsem_handle_t* handle, uint32_t key, int32_t* crc) {
  lock_handles();
  uint32_t i = 0;
  while (i < handle_count && handles[i].key != key) ++i;
  int id = -1;
  uint32_t code = i < kHandles ? find_set(key, &id) : XSEM_TOO_MANY;
  if (code == 0 && i == handle_count) {
    handles[i].key = key;
    handles[i].id.store(id, std::memory_order_relaxed);
    ++handle_count;
  }
  unlock_handles();
  if (code != 0) {
    xtr_trace("XSEM   F:    xsem_getSemaphoreHandle: semaphore 0x%X cannot be had, crc= 0x%X", key, code);
    return fail(crc, code);
  }
  *handle = &handles[i];
  *crc = 0;
  return 0;
}

int32_t xsem_lockSemaphore(xsem_handle_t handle, uint32_t timeout, int32_t* crc) {
  if (!handle) return fail(crc, XSEM_BAD_HANDLE);
  const int saved_errno = errno;
  const uint32_t thread = xtr_gettid();
  uint32_t code = 0;
  if (handle->holder.load(std::memory_order_relaxed) == thread) {
    ++handle->levels;
  } else {
    if (thread_end_key_made) pthread_setspecific(thread_end_key, handle);
    code = take(*handle, timeout == XSEM_WAIT_FOREVER ? -1 : now_in_ms() + timeout);
    if (code == 0) {
      // Pairs with the release in give_back(): what the thread before wrote under the lock is seen by this one.
      handle->holder.load(std::memory_order_acquire);
      handle->levels = 1;
      handle->holder.store(thread, std::memory_order_release);
    }
  }
  errno = saved_errno;
  if (code != 0) return fail(crc, code);
  *crc = 0;
  return 0;
}

int32_t xsem_unlockSemaphore(xsem_handle_t handle, int32_t* crc) {
  if (!handle) return fail(crc, XSEM_BAD_HANDLE);
  if (handle->holder.load(std::memory_order_relaxed) != xtr_gettid()) return fail(crc, XSEM_NOT_HOLDER);
  *crc = 0;
  if (handle->levels > 1) {
    --handle->levels;
    return 0;
  }
  const int saved_errno = errno;
  const int error = give_back(*handle);
  errno = saved_errno;
  return error == 0 ? 0 : fail_with_errno(crc, error);
}
