// Arbitrary bytes as an encoded block, with output areas of several sizes: nothing outside is touched, and the result
// does not depend on the memory that the output had before.
#include "fuzz/support.h"
#include "log/codec/codec.h"

namespace {

struct Decoded {
  int32_t sysrc;
  uint32_t comprc;
  uint32_t length;
};

Decoded decode(const uint8_t* data, uint32_t size, uint8_t* output, uint32_t capacity) {
  const auto input = exact(data, size);
  xlog_mem_block block = {input.get(), size, output, capacity};
  uint32_t comprc = ~0u;
  const int32_t sysrc = plov::codec::decode(block, &comprc);
  return {sysrc, comprc, block.output_length};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0 || size > 0x10000) return 0;
  const auto length = static_cast<uint32_t>(size);
  // A stored block is copied whatever the capacity: its callers have room for it.
  if (data[0] == 0xFF) {
    const auto output = std::make_unique<uint8_t[]>(size);
    const Decoded plain = decode(data, length, output.get(), length);
    require(plain.sysrc == 0 && plain.length == size - 1 && memcmp(output.get(), data + 1, size - 1) == 0);
    return 0;
  }
  constexpr uint32_t kLarge = 0x1FE00;
  const auto large = std::make_unique<uint8_t[]>(kLarge);
  const Decoded whole = decode(data, length, large.get(), kLarge);
  require(whole.length <= kLarge && (whole.sysrc == 0) == (whole.comprc == 0));
  // With less room the same bytes come, as far as they fit.
  for (const uint32_t capacity : {0u, 1u, 100u, whole.length / 2}) {
    if (capacity > whole.length) continue;
    const auto small = std::make_unique<uint8_t[]>(capacity);
    memset(small.get(), 0x5A, capacity);
    const Decoded cut = decode(data, length, small.get(), capacity);
    require(cut.length == capacity && memcmp(small.get(), large.get(), capacity) == 0);
    require(capacity == whole.length || (cut.sysrc == 2 && cut.comprc == XLOG_DECODE_CUT));
  }
  return 0;
}
