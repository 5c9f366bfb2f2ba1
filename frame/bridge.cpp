#include "frame/bridge.h"

#include <errno.h>
#include <stddef.h>

#include "frame/memory.h"

namespace plov::frame {
namespace {

// Length and address of the bridge's buffer are multiples of this.
constexpr uintptr_t kAlignment = 16;

}  // namespace

int32_t bridge_status(int32_t result) {
  if (xnbSaveStatus(result) == 0) return xnbGetLastStatus();
  constexpr uintptr_t kMask = kAlignment - 1;
  const size_t length = (size_t{xnbGetAllocaLen()} + kMask) & ~kMask;
  const Owned<uint8_t> memory(static_cast<uint8_t*>(PLOV_MALLOC(length + kMask)));
  if (!memory) return ENOMEM;
  const auto misplaced = reinterpret_cast<uintptr_t>(memory.get()) & kMask;
  return xnbUnloadAlloca(memory.get() + (misplaced ? kAlignment - misplaced : 0));
}

}  // namespace plov::frame
