// Memory from the debug allocator, with the source name and line of whoever asks.
#ifndef PLOV_FRAME_MEMORY_H
#define PLOV_FRAME_MEMORY_H

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

}  // namespace plov::frame

#endif
