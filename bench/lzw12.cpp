#include "lzw12.h"

#include <algorithm>
#include <bit>

namespace bench {
namespace {

class Packer {
 public:
  explicit Packer(uint8_t* output) : start_(output), out_(output) {}
  void add(uint32_t code) {
    if (half_) {
      out_[0] = static_cast<uint8_t>(held_ >> 4);
      out_[1] = static_cast<uint8_t>(held_ << 4 | code >> 8);
      out_[2] = static_cast<uint8_t>(code);
      out_ += 3;
    }
    held_ = code;
    half_ = !half_;
  }
  size_t finish() {
    if (half_) add(kLzwClear);
    return static_cast<size_t>(out_ - start_);
  }

 private:
  uint8_t* start_;
  uint8_t* out_;
  uint32_t held_ = 0;
  bool half_ = false;
};

}  // namespace

size_t LzwEncoder::encode(const uint8_t* input, size_t length, uint8_t* output) {
  if (length == 0) return 0;
  // No more of the table is cleared than a block of this size needs.
  const uint32_t slots = std::min<uint32_t>(kSlots, std::bit_ceil(2 * static_cast<uint32_t>(length)));
  const uint32_t shift = static_cast<uint32_t>(32 - std::countr_zero(slots));
  std::fill_n(slots_, slots, 0);
  Packer packer(output);
  uint32_t prefix = input[0], next = kLzwFirst;
  for (size_t i = 1; i < length; ++i) {
    const uint32_t key = prefix << 8 | input[i];
    uint32_t slot = key * 0x9E3779B1u >> shift;
    while (slots_[slot] != 0 && slots_[slot] >> 12 != key) slot = (slot + 1) & (slots - 1);
    if (slots_[slot] != 0) {
      prefix = slots_[slot] & 0xFFF;
      continue;
    }
    packer.add(prefix);
    if (next < kLzwCodes) {
      slots_[slot] = key << 12 | next++;
    } else {
      packer.add(kLzwClear);
      std::fill_n(slots_, slots, 0);
      next = kLzwFirst;
    }
    prefix = input[i];
  }
  packer.add(prefix);
  return packer.finish();
}

size_t LzwDecoder::decode(const uint8_t* input, size_t length, uint8_t* output, size_t capacity) {
  if (!literals_) {
    for (uint32_t i = 0; i < 256; ++i) entries_[i] = {0, static_cast<uint8_t>(i), static_cast<uint8_t>(i), 1};
    literals_ = true;
  }
  uint32_t next = kLzwFirst, previous = kLzwClear;
  uint8_t* out = output;
  uint8_t* const end = output + capacity;
  const auto expand = [&](uint32_t code) {
    if (code == kLzwClear) {
      next = kLzwFirst;
      previous = kLzwClear;
      return true;
    }
    if (previous != kLzwClear && next < kLzwCodes) {
      // The string of a code that is just being made begins with its own prefix.
      const uint8_t last = code == next ? entries_[previous].first : entries_[code].first;
      entries_[next] = {static_cast<uint16_t>(previous), entries_[previous].first, last, entries_[previous].length + 1};
      ++next;
    }
    if (code >= next) return false;
    const uint32_t count = entries_[code].length;
    if (static_cast<size_t>(end - out) < count) return false;
    uint8_t* to = out + count;
    uint32_t from = code;
    while (to > out) {
      *--to = entries_[from].last;
      from = entries_[from].prefix;
    }
    out += count;
    previous = code;
    return true;
  };
  for (size_t i = 0; i + 3 <= length; i += 3) {
    if (!expand(static_cast<uint32_t>(input[i] << 4 | input[i + 1] >> 4))) return SIZE_MAX;
    if (!expand(static_cast<uint32_t>((input[i + 1] & 15) << 8 | input[i + 2]))) return SIZE_MAX;
  }
  return static_cast<size_t>(out - output);
}

}  // namespace bench
