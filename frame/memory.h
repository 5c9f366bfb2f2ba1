// Memory from the debug allocator, with the source name and line of whoever asks.
#ifndef PLOV_FRAME_MEMORY_H
#define PLOV_FRAME_MEMORY_H

#include <stddef.h>
#include <stdint.h>

#include <memory>

#include "plovmemdebug.h"

#define PLOV_MALLOC(size) plovmemdebug_malloc((size), __FILE__, __LINE__)
#define PLOV_FREE(block) plovmemdebug_free((block), __FILE__, __LINE__)

namespace plov::frame {

struct DebugFree {
  void operator()(void* block) const { PLOV_FREE(block); }
};

// Owns one block from PLOV_MALLOC: `Owned<uint8_t> buffer(static_cast<uint8_t*>(PLOV_MALLOC(size)));`
template <class T>
using Owned = std::unique_ptr<T, DebugFree>;

// A buffer for large transfers. It begins on a cache line: from and to any other address the kernel copies files at a
// half or a third of the speed.
class TransferBuffer {
 public:
  bool reserve(size_t size) {
    block_.reset(static_cast<uint8_t*>(PLOV_MALLOC(size + kCacheLine)));
    return get() != nullptr;
  }
  uint8_t* get() const {
    uint8_t* const block = block_.get();
    return block ? block + (kCacheLine - reinterpret_cast<uintptr_t>(block) % kCacheLine) % kCacheLine : nullptr;
  }

 private:
  static constexpr size_t kCacheLine = 64;
  Owned<uint8_t> block_;
};

}  // namespace plov::frame

#endif
