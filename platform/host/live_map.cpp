#include "platform/host/live_map.h"

#include <string.h>
#include <sys/mman.h>

namespace plov::host {
namespace {

constexpr unsigned kGrainBits = 4;
constexpr unsigned kAddressBits = sizeof(void*) == 4 ? 32 : 47;
constexpr unsigned kRegionBits = sizeof(void*) == 4 ? 26 : 28;
constexpr size_t kRegions = size_t{1} << (kAddressBits - kRegionBits);
constexpr size_t kStates = size_t{1} << (kRegionBits - kGrainBits);

using StateWord = size_t __attribute__((may_alias));
static_assert(sizeof(StateByte) == 1 && static_cast<uint8_t>(BlockState::unknown) == 0);

// Address space is reserved region by region; memory comes a page at a time with the first block in it (one page of
// states for 64 KiB of blocks). Nothing is ever given back.
std::atomic<StateByte*> regions[kRegions];

StateByte* make_region(std::atomic<StateByte*>& place) {
  void* memory = mmap(nullptr, kStates, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED) return nullptr;
  StateByte* expected = nullptr;
  StateByte* made = static_cast<StateByte*>(memory);
  if (place.compare_exchange_strong(expected, made, std::memory_order_acq_rel)) return made;
  munmap(memory, kStates);
  return expected;
}

StateByte* state_in(StateByte* region, uintptr_t address) {
  return &region[(address >> kGrainBits) % kStates];
}

}  // namespace

StateByte* find_state(uintptr_t address) {
  const uintptr_t region = address >> kRegionBits;
  if (region >= kRegions) return nullptr;
  StateByte* states = regions[region].load(std::memory_order_acquire);
  return states ? state_in(states, address) : nullptr;
}

StateByte* make_state(uintptr_t address) {
  const uintptr_t region = address >> kRegionBits;
  if (region >= kRegions) return nullptr;
  StateByte* states = regions[region].load(std::memory_order_acquire);
  if (!states) states = make_region(regions[region]);
  return states ? state_in(states, address) : nullptr;
}

void for_each_live(void (*visit)(uintptr_t, StateByte&, void*), void* context) {
  for (size_t region = 0; region < kRegions; ++region) {
    StateByte* states = regions[region].load(std::memory_order_acquire);
    if (!states) continue;
    // Most of it is unknown: eight states at a look.
    for (size_t word = 0; word < kStates; word += sizeof(StateWord)) {
      if (__atomic_load_n(static_cast<StateWord*>(static_cast<void*>(&states[word])), __ATOMIC_RELAXED) == 0) continue;
      for (size_t i = word; i < word + sizeof(StateWord); ++i)
        if (states[i].load(std::memory_order_relaxed) == BlockState::live)
          visit((uintptr_t{region} << kRegionBits) + (i << kGrainBits), states[i], context);
    }
  }
}

}  // namespace plov::host
