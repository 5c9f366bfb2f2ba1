#include "platform/host/trace_ring.h"

#include <errno.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <unistd.h>

namespace plov::host {
namespace {

// One ring a user. Another layout must take another base.
constexpr uint32_t kKeyBase = 0x58545231;

constexpr size_t kHeadWords = offsetof(Line, text) / sizeof(uint32_t);
constexpr size_t kNumberWord = offsetof(Line, number) / sizeof(uint32_t);
constexpr size_t kSumWord = offsetof(Line, sum) / sizeof(uint32_t);
constexpr size_t kPidWord = offsetof(Line, pid) / sizeof(uint32_t);
constexpr size_t kTidWord = offsetof(Line, tid) / sizeof(uint32_t);

enum State : uint32_t { kUnknown, kShared, kOwn, kNone };

std::atomic<Ring*> attached;
std::atomic<uint32_t> state{kUnknown};

Ring* attach_shared() {
  const uid_t user = geteuid();
  const int id = shmget(static_cast<key_t>(kKeyBase ^ user), sizeof(Ring), IPC_CREAT | 0600);
  if (id < 0) return nullptr;
  // A fresh segment is zero, which is an empty ring: nothing to initialise, so nobody to wait for. The segment of
  // somebody else under our key would show him our lines and could be cut short under us.
  shmid_ds status;
  if (shmctl(id, IPC_STAT, &status) != 0 || status.shm_segsz != sizeof(Ring) || status.shm_perm.uid != user ||
      status.shm_perm.cuid != user || (status.shm_perm.mode & 0077) != 0)
    return nullptr;
  void* address = shmat(id, nullptr, 0);
  return address == reinterpret_cast<void*>(-1) ? nullptr : static_cast<Ring*>(address);
}

Ring* make_own() {
  void* address =
      mmap(nullptr, sizeof(Ring), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  return address == MAP_FAILED ? nullptr : static_cast<Ring*>(address);
}

// Several threads, or a signal handler inside one, may come here at once: one ring wins.
Ring* attach() {
  if (state.load(std::memory_order_relaxed) == kNone) return nullptr;
  const int saved_errno = errno;
  Ring* ring = attach_shared();
  State found = ring ? kShared : kOwn;
  if (!ring) ring = make_own();
  Ring* winner = nullptr;
  if (!ring) {
    state.store(kNone, std::memory_order_relaxed);
  } else if (attached.compare_exchange_strong(winner, ring)) {
    state.store(found, std::memory_order_relaxed);
    winner = ring;
  } else if (found == kShared) {
    shmdt(ring);
  } else {
    munmap(ring, sizeof *ring);
  }
  errno = saved_errno;
  return winner;
}

// At load time, so that a signal handler finds the ring attached.
__attribute__((constructor)) void attach_early() {
  trace_ring();
}

constexpr uint32_t kSumSeed = 0x9E3779B1;

inline uint32_t add(uint32_t sum, uint32_t word) {
  return ((sum << 5) | (sum >> 27)) + word;
}

constexpr size_t kCacheLine = 64;

// Every x86 of the console takes this instruction or passes over it; the compiler's own is none for plain i686.
inline void fetch_ahead(const void* address) {
  asm volatile("prefetcht0 %0" : : "m"(*static_cast<const char*>(address)));
}

}  // namespace

Ring* trace_ring() {
  Ring* ring = attached.load(std::memory_order_acquire);
  return ring ? ring : attach();
}

bool trace_ring_is_shared() {
  return state.load(std::memory_order_relaxed) == kShared;
}

void store_line(Ring& ring, Line& line) {
  do line.number = ring.last.fetch_add(1, std::memory_order_relaxed) + 1;
  while (line.number == 0);
  line.reserved = 0;
  const size_t text_words = (line.length + 3) / 4;
  if (const uint32_t rest = line.length % 4; rest != 0) {
    char* const last = line.text + line.length - rest;
    uint32_t word;
    memcpy(&word, last, sizeof word);
    word &= (1u << (8 * rest)) - 1;
    memcpy(last, &word, sizeof word);
  }

  // The next drawing of a number waits until the stores of this line are done: fetch the memory of a line to come.
  const auto& coming = ring.slots[(line.number + 2) % kSlots];
  fetch_ahead(&coming[0]);
  fetch_ahead(&coming[kCacheLine / sizeof coming[0]]);
  auto& slot = ring.slots[line.number % kSlots];
  const char* bytes = reinterpret_cast<const char*>(&line);
  uint32_t sum = kSumSeed;
  for (size_t i = 0; i < kHeadWords + text_words; ++i) {
    if (i == kSumWord) continue;
    uint32_t word;
    memcpy(&word, bytes + i * sizeof word, sizeof word);
    sum = add(sum, word);
    slot[i].store(word, std::memory_order_relaxed);
  }
  slot[kSumWord].store(sum, std::memory_order_relaxed);
}

bool load_line(const Ring& ring, uint32_t number, Filter filter, Line& line) {
  const auto& slot = ring.slots[number % kSlots];
  if (number == 0 || slot[kNumberWord].load(std::memory_order_relaxed) != number) return false;
  if (filter.pid != 0 && slot[kPidWord].load(std::memory_order_relaxed) != filter.pid) return false;
  if (filter.tid != 0 && slot[kTidWord].load(std::memory_order_relaxed) != filter.tid) return false;

  uint32_t head[kHeadWords];
  for (size_t i = 0; i < kHeadWords; ++i) head[i] = slot[i].load(std::memory_order_relaxed);
  memcpy(&line, head, sizeof head);
  if (line.length > kTextSize) return false;
  uint32_t sum = kSumSeed;
  for (size_t i = 0; i < kHeadWords; ++i)
    if (i != kSumWord) sum = add(sum, head[i]);
  for (size_t i = 0; i < (line.length + 3) / 4; ++i) {
    const uint32_t word = slot[kHeadWords + i].load(std::memory_order_relaxed);
    sum = add(sum, word);
    memcpy(line.text + i * sizeof word, &word, sizeof word);
  }
  // The copy is checked again: the slot may have changed since the first look.
  return sum == line.sum && line.number == number && (filter.pid == 0 || line.pid == filter.pid) &&
         (filter.tid == 0 || line.tid == filter.tid);
}

}  // namespace plov::host
