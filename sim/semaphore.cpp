#include "sim/semaphore.h"

#include <errno.h>
#include <sched.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <atomic>

#include "sim/process_mutex.h"
#include "xsim.h"
#include "xtr.h"

xsim_message_block* pxsim_hdr;

namespace plov::sim {
namespace {

constexpr int kMode = 0666;
// Asked for before the wait: who finds the semaphore held most often finds it free a moment later. One that waits is
// given the semaphore while it still sleeps, and all others must wait for it to run: the first wait of one would make
// every operation of all wait, for as long as they keep coming. So the processor is given up first, many times.
constexpr int kTries = 32, kTriesAtOnce = 4;
// A maker of the message block that is slower than this has died: whoever waits for it completes the block.
constexpr int kPatience = 100;  // ms

std::atomic<int> semaphore_id{-1};  // set before pxsim_hdr
thread_local unsigned levels __attribute__((tls_model("initial-exec")));
thread_local int held_id __attribute__((tls_model("initial-exec")));  // what levels counts of

// What one thread wrote under the semaphore is seen by the next of this process. The kernel sees to that; this tells
// the compiler, and tools that watch threads.
std::atomic<uint32_t> handover;

bool eyecatcher_fits(const xsim_message_block& block) {
  return memcmp(block.eyecatcher, XSIM_EYECATCHER, sizeof XSIM_EYECATCHER - 1) == 0;
}

// Neither whole nor in the making.
bool foreign(const xsim_message_block& block) {
  for (size_t i = 0; i < sizeof XSIM_EYECATCHER - 1; ++i)
    if (block.eyecatcher[i] != '\0' && block.eyecatcher[i] != XSIM_EYECATCHER[i]) return true;
  return false;
}

// Fills the block in. A semaphore set that outlived an earlier block is taken over.
int32_t complete(xsim_message_block& block) {
  memcpy(block.eyecatcher, XSIM_EYECATCHER, sizeof XSIM_EYECATCHER);
  int id = semget(static_cast<key_t>(XSIM_KEY_MESSAGE), 1, kMode | IPC_CREAT | IPC_EXCL);
  if (id < 0 && errno == EEXIST) id = semget(static_cast<key_t>(XSIM_KEY_MESSAGE), 1, kMode | IPC_CREAT);
  if (id < 0) {
    const int error = errno;
    xtr_trace("XSIM   F: Error obtaining semaphore (errno=%d %s)", error, strerror(error));
    return -error;
  }
  block.semaphore_id = id;
  __atomic_store_n(&block.ready, 1, __ATOMIC_RELEASE);
  return 0;
}

bool ready(const xsim_message_block& block) {
  return __atomic_load_n(&block.ready, __ATOMIC_ACQUIRE) == 1;
}

int32_t join(xsim_message_block& block) {
  for (int waited = 0; !ready(block) && !foreign(block) && waited < kPatience; ++waited) usleep(1000);
  if (ready(block) ? eyecatcher_fits(block) : !foreign(block)) return ready(block) ? 0 : complete(block);
  xtr_trace("XSIM   F: Opened an incorrect shared memory buffer: eycatcher=%16.16s", block.eyecatcher);
  return -1;
}

int32_t xsim_shm_init() {
  const ProcessLock lock;
  if (!lock.held()) return -EDEADLK;
  if (pxsim_hdr) return 0;
  constexpr auto kKey = static_cast<key_t>(XSIM_KEY_MESSAGE);
  int id = shmget(kKey, sizeof(xsim_message_block), kMode | IPC_CREAT | IPC_EXCL);
  const bool created = id >= 0;
  if (!created && errno == EEXIST) id = shmget(kKey, sizeof(xsim_message_block), kMode | IPC_CREAT);
  if (id < 0) {
    const int error = errno;
    xtr_trace("XSIM   F: Error retrieving message shared memory block (errno=%d %s)", error, strerror(error));
    return -error;
  }
  void* const address = shmat(id, nullptr, 0);
  if (address == reinterpret_cast<void*>(-1)) {
    const int error = errno;
    xtr_trace("XSIM   F: Error attaching to message shared memory block (errno=%d %s)", error, strerror(error));
    return -error;
  }
  auto* const block = static_cast<xsim_message_block*>(address);
  if (created) memset(block, 0, sizeof *block);
  const int32_t result = created ? complete(*block) : join(*block);
  if (result != 0) {
    shmdt(address);
    return result;
  }
  semaphore_id = block->semaphore_id;
  __atomic_store_n(&pxsim_hdr, block, __ATOMIC_RELEASE);
  return 0;
}

// The set that `lost` named was removed, and nobody can hold what is gone. Whoever asks by key first makes the new one,
// and all get the same; its id goes into the block for those who come later. False: there is no other set.
bool renew(int lost) {
  const int id = semget(static_cast<key_t>(XSIM_KEY_MESSAGE), 1, kMode | IPC_CREAT);
  if (id < 0) xtr_trace("XSIM   F: Error obtaining semaphore (errno=%d %s)", errno, strerror(errno));
  if (id < 0 || id == lost) return false;
  __atomic_store_n(&pxsim_hdr->semaphore_id, id, __ATOMIC_RELAXED);
  semaphore_id = id;
  return true;
}

int32_t xsim_lock_buf() {
  xtr_trace("XSIM   D: -> xsim_locksem");
  if (levels == 0) {
    int id = semaphore_id;
    bool renewed = false;
    for (int attempt = 0;; ++attempt) {
      sembuf operations[2] = {{0, 0, 0}, {0, 1, SEM_UNDO}};
      if (attempt < kTries) operations[0].sem_flg = IPC_NOWAIT;
      if (attempt >= kTriesAtOnce) sched_yield();
      if (semop(id, operations, 2) == 0) break;
      const int error = errno;
      if (error == EINTR || error == EAGAIN) continue;
      xtr_trace("XSIMSEMF: semop error of %x on lock", error);
      if ((error != EIDRM && error != EINVAL) || renewed || !renew(id)) return -1;
      renewed = true;
      id = semaphore_id;
    }
    held_id = id;
    handover.load(std::memory_order_acquire);
  }
  ++levels;
  return 0;
}

}  // namespace

int32_t xsim_unlock_buf() {
  if (levels == 0) return -1;  // in a child forked meanwhile
  int32_t result = 0;
  if (--levels == 0) {
    handover.store(1, std::memory_order_release);
    // Held, it is 1. Somebody who set it to 0 by hand must not make this wait.
    sembuf operation = {0, -1, SEM_UNDO | IPC_NOWAIT};
    while (result == 0 && semop(held_id, &operation, 1) != 0) {
      if (errno == EINTR) continue;
      xtr_trace("XSIMSEMF: semop error of %x on unlock", errno);
      result = -1;
    }
  }
  end_guarded();
  return result;
}

int32_t xsim_getsem() {
  int32_t result = 0;
  if (!__atomic_load_n(&pxsim_hdr, __ATOMIC_ACQUIRE)) result = xsim_shm_init();
  if (result != 0) return result;
  begin_guarded();
  result = xsim_lock_buf();
  if (result != 0) end_guarded();
  return result;
}

void forget_semaphore() {
  levels = 0;
}

}  // namespace plov::sim
