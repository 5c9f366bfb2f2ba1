// The debug allocator: each block lies in one of the C library's, behind a header that knows it and before a trailer
// that must not change.
//
//   C library's block (address a multiple of 16):  | header 24 | the caller's bytes | trailer 8 |
//
// So the caller's address is 8 more than a multiple of 16. The C library never gives out such an address, and we give
// out no other: an address alone tells whose block it would be, and only ours are looked up.
#include <errno.h>
#include <sched.h>
#include <stdlib.h>
#include <string.h>

#include "platform/host/live_map.h"
#include "plovmemdebug.h"
#include "xtr.h"

// In a build with the address sanitizer the guards are out of bounds for everybody else at once.
#if __has_include(<sanitizer/asan_interface.h>)
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(address, size) (void)0
#define ASAN_UNPOISON_MEMORY_REGION(address, size) (void)0
#endif

namespace {

using namespace plov::host;

struct Header {
  uint64_t size;  // one layout for both word sizes
  uint64_t file;
  int32_t line;
  uint32_t check;  // over the above and the address; next to the caller's bytes
};
static_assert(sizeof(Header) == 24);

constexpr size_t kAlignment = 16, kTrailer = 8, kOverhead = sizeof(Header) + kTrailer;
constexpr int kPinPatience = 1000;

constexpr uint32_t kMixer = 0x9E3779B1;

// Enough to tell damage; nobody forges it.
uint32_t check_of(const Header& header, uintptr_t address) {
  const uint64_t words = header.size ^ header.file ^ address;
  return (static_cast<uint32_t>(words) ^ static_cast<uint32_t>(words >> 32) ^
          static_cast<uint32_t>(header.line) << 16) *
         kMixer;
}

uint64_t trailer_of(uintptr_t address) {
  return ~uint64_t{address};
}

bool may_be_ours(uintptr_t address) {
  return address % kAlignment == sizeof(Header) % kAlignment;
}

char* base_of(void* block) {
  return static_cast<char*>(block) - sizeof(Header);
}

void guard(char* base, size_t size, const char* file, int32_t line) {
  const uintptr_t address = reinterpret_cast<uintptr_t>(base) + sizeof(Header);
  Header header = {size, reinterpret_cast<uintptr_t>(file), line, 0};
  header.check = check_of(header, address);
  const uint64_t trailer = trailer_of(address);
  memcpy(base, &header, sizeof header);
  memcpy(base + sizeof header + size, &trailer, sizeof trailer);
  ASAN_POISON_MEMORY_REGION(base, sizeof header);
  ASAN_POISON_MEMORY_REGION(base + sizeof header + size, sizeof trailer);
}

// Takes the block out of circulation: of two threads that free it one gets false, and so does whoever frees it twice.
bool claim(StateByte& state) {
  for (int tries = 0;;) {
    BlockState seen = BlockState::live;
    if (state.compare_exchange_weak(seen, BlockState::freed, std::memory_order_acquire)) return true;
    if (seen == BlockState::freed || seen == BlockState::unknown) return false;
    // Reading a header takes a moment. A lister that is still not done was lost in a fork; then the block stays.
    if (seen == BlockState::pinned && ++tries > kPinPatience) return false;
    if (seen == BlockState::pinned) sched_yield();
  }
}

// The header of a claimed block, when header and trailer are what they were; else the fault is traced.
bool check(void* block, Header& header, const char* file, int32_t line) {
  char* base = base_of(block);
  const uintptr_t address = reinterpret_cast<uintptr_t>(block);
  ASAN_UNPOISON_MEMORY_REGION(base, sizeof header);
  memcpy(&header, base, sizeof header);
  if (header.check != check_of(header, address)) {
    xtr_trace("PLOVMEMF:    %s:%d: memory before block %p was overwritten, block is left alone", file, line, block);
    return false;
  }
  const char* end = static_cast<char*>(block) + header.size;
  uint64_t trailer;
  ASAN_UNPOISON_MEMORY_REGION(end, sizeof trailer);
  memcpy(&trailer, end, sizeof trailer);
  if (trailer == trailer_of(address)) return true;
  xtr_trace("PLOVMEMF:    %s:%d: block %p of %zu bytes from %s:%d was written past its end, block is left alone", file,
            line, block, static_cast<size_t>(header.size), reinterpret_cast<const char*>(header.file), header.line);
  return false;
}

// Claims and checks a block that is to be freed or resized; null, with a line, when it must be left alone.
StateByte* take_back(void* block, Header& header, const char* file, int32_t line) {
  const uintptr_t address = reinterpret_cast<uintptr_t>(block);
  StateByte* state = may_be_ours(address) ? find_state(address) : nullptr;
  if (!state || !claim(*state)) {
    const bool known = state && state->load(std::memory_order_relaxed) != BlockState::unknown;
    xtr_trace(known ? "PLOVMEMF:    %s:%d: block %p was freed before" : "PLOVMEMF:    %s:%d: %p is no block of memory",
              file, line, block);
    return nullptr;
  }
  if (check(block, header, file, line)) return state;
  state->store(BlockState::live, std::memory_order_release);
  return nullptr;
}

bool too_large(size_t size) {
  return size > PTRDIFF_MAX - kOverhead;
}

struct Listing {
  void (*visit)(const void* block, size_t size, const char* file, int32_t line, void* context);
  void* context;
  uint32_t count;
};

void list_block(uintptr_t address, StateByte& state, void* listing) {
  BlockState seen = BlockState::live;
  if (!state.compare_exchange_strong(seen, BlockState::pinned, std::memory_order_acquire)) return;
  void* block = reinterpret_cast<void*>(address + sizeof(Header) % kAlignment);
  Header header;
  ASAN_UNPOISON_MEMORY_REGION(base_of(block), sizeof header);
  memcpy(&header, base_of(block), sizeof header);
  ASAN_POISON_MEMORY_REGION(base_of(block), sizeof header);
  state.store(BlockState::live, std::memory_order_release);
  Listing& list = *static_cast<Listing*>(listing);
  ++list.count;
  if (list.visit)
    list.visit(block, static_cast<size_t>(header.size), reinterpret_cast<const char*>(header.file), header.line,
               list.context);
}

void* no_memory() {
  errno = ENOMEM;
  return nullptr;
}

}  // namespace

void* plovmemdebug_malloc(size_t size, const char* file, int32_t line) {
  if (too_large(size)) return no_memory();
  char* base = static_cast<char*>(malloc(size + kOverhead));
  if (!base) return nullptr;
  char* block = base + sizeof(Header);
  StateByte* state =
      may_be_ours(reinterpret_cast<uintptr_t>(block)) ? make_state(reinterpret_cast<uintptr_t>(block)) : nullptr;
  if (!state) {
    free(base);
    return no_memory();
  }
  guard(base, size, file, line);
  state->store(BlockState::live, std::memory_order_release);
  return block;
}

void* plovmemdebug_realloc(void* block, size_t size, const char* file, int32_t line) {
  if (!block) return plovmemdebug_malloc(size, file, line);
  if (reinterpret_cast<uintptr_t>(block) % kAlignment == 0) return realloc(block, size == 0 ? 1 : size);
  Header header;
  StateByte* state = take_back(block, header, file, line);
  if (!state) {
    errno = EINVAL;
    return nullptr;
  }
  char* base = too_large(size) ? nullptr : static_cast<char*>(realloc(base_of(block), size + kOverhead));
  StateByte* new_state = base ? make_state(reinterpret_cast<uintptr_t>(base) + sizeof header) : nullptr;
  if (!base) {
    guard(base_of(block), static_cast<size_t>(header.size), reinterpret_cast<const char*>(header.file), header.line);
    state->store(BlockState::live, std::memory_order_release);
    return no_memory();
  }
  guard(base, size, file, line);
  if (new_state) new_state->store(BlockState::live, std::memory_order_release);
  return base + sizeof header;
}

void plovmemdebug_free(void* block, const char* file, int32_t line) {
  if (!block) return;
  if (reinterpret_cast<uintptr_t>(block) % kAlignment == 0) {
    free(block);
    return;
  }
  Header header;
  if (take_back(block, header, file, line)) free(base_of(block));
}

uint32_t plovmemdebug_list(void (*visit)(const void*, size_t, const char*, int32_t, void*), void* context) {
  Listing listing = {visit, context, 0};
  for_each_live(list_block, &listing);
  return listing.count;
}
