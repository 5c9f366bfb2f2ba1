// The trace ring: the newest lines of all processes of one user, of both word sizes, in System V shared memory.
//
// Nobody takes a lock and nobody waits. A writer draws a number, which also names its slot, and stores the line with a
// sum over all of it. A line counts for a reader when it has the number that its slot should have and its sum fits: so
// a line that is half written, that two writers a whole round apart have mixed, or whose writer died is passed over.
// Any process of the user may have damaged the ring; whatever it holds, nobody reads or writes outside a slot.
#ifndef PLOV_HOST_TRACE_RING_H
#define PLOV_HOST_TRACE_RING_H

#include <stddef.h>
#include <stdint.h>

#include <atomic>

namespace plov::host {

inline constexpr uint32_t kSlots = 8192;  // a power of two: the numbers go on across their 32-bit end
inline constexpr uint32_t kSlotSize = 512;
inline constexpr uint32_t kTextSize = kSlotSize - 32;

// One line, as a writer fills it and a reader gets it. Fixed layout for both word sizes.
struct Line {
  uint32_t number;  // 0: never used
  uint32_t sum;
  uint32_t seconds;  // since 1970, UTC
  uint32_t nanoseconds;
  uint32_t pid;
  uint32_t tid;
  uint32_t length;  // of text
  uint32_t reserved;
  char text[kTextSize];  // not terminated
};
static_assert(sizeof(Line) == kSlotSize && offsetof(Line, text) == 32);

struct Ring {
  std::atomic<uint32_t> last;  // number drawn last
  uint32_t reserved[15];
  std::atomic<uint32_t> slots[kSlots][kSlotSize / sizeof(uint32_t)];
};
static_assert(sizeof(Ring) == 64 + kSlots * kSlotSize);
static_assert(std::atomic<uint32_t>::is_always_lock_free && sizeof(std::atomic<uint32_t>) == sizeof(uint32_t));

// Which lines a reader wants; 0 stands for every one.
struct Filter {
  uint32_t pid;
  uint32_t tid;
};

// The user's ring, attached on first use. When it cannot be had, or belongs to somebody else, a ring of this process
// alone; null when not even that. Signal-safe, as are all functions here.
Ring* trace_ring();
bool trace_ring_is_shared();

// Gives the line its number and stores it. `length` must not exceed kTextSize.
void store_line(Ring& ring, Line& line);

// Gets the line with this number; false when the ring no longer or not yet has it whole, or the filter does not want
// it.
bool load_line(const Ring& ring, uint32_t number, Filter filter, Line& line);

}  // namespace plov::host

#endif
