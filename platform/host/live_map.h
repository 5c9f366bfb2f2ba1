// Which addresses the debug allocator has given out. One byte of state for each 16 bytes of address space, kept apart
// from the blocks: a pointer is judged without reading at it, and a caller's overrun cannot damage the judgement.
#ifndef PLOV_HOST_LIVE_MAP_H
#define PLOV_HOST_LIVE_MAP_H

#include <stddef.h>
#include <stdint.h>

#include <atomic>

namespace plov::host {

enum class BlockState : uint8_t {
  unknown,  // never given out here
  live,
  freed,   // given out once, given back since
  pinned,  // live, and its header is being read by a lister: whoever wants to free it waits
};

using StateByte = std::atomic<BlockState>;

// The state of the block at `address`; null when nothing near it was ever given out.
StateByte* find_state(uintptr_t address);

// The same, making the part of the map that is missing; null without memory.
StateByte* make_state(uintptr_t address);

// Visits the address of every block that is live just then.
void for_each_live(void (*visit)(uintptr_t address, StateByte& state, void* context), void* context);

}  // namespace plov::host

#endif
