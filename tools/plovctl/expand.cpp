#include "expand.h"

#include <memory>

#include "xlog.h"

namespace plov::ctl {
namespace {

// What the readers of the library allow a block to become before they cut it.
constexpr uint32_t kCapacity = 0x1FE00;

struct Decoded {
  bool whole;
  uint32_t length;
};

Decoded decode(Bytes stored, uint8_t* output) {
  xlog_mem_block block{stored.data(), static_cast<uint32_t>(stored.size()), output, kCapacity};
  uint32_t comprc = 0;
  const int32_t sysrc = xlog_mem_decode(&block, &comprc);
  return {sysrc == 0 && comprc == 0, block.output_length <= kCapacity ? block.output_length : 0};
}

// One block's worth of memory for all blocks of a run.
uint8_t* work_area() {
  static const std::unique_ptr<uint8_t[]> area = std::make_unique<uint8_t[]>(kCapacity);
  return area.get();
}

}  // namespace

Expansion expand_block(Bytes stored) {
  if (stored.empty()) return {true, {}};
  uint8_t* area = work_area();
  const Decoded decoded = decode(stored, area);
  return {decoded.whole, {area, area + decoded.length}};
}

std::optional<uint32_t> expanded_length(Bytes stored) {
  if (stored.empty()) return 0;
  const Decoded decoded = decode(stored, work_area());
  if (!decoded.whole) return std::nullopt;
  return decoded.length;
}

}  // namespace plov::ctl
