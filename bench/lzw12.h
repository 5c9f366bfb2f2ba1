// LZW with codes of 12 bits, as well made as it goes: what the block codec is measured against.
#ifndef PLOV_BENCH_LZW12_H
#define PLOV_BENCH_LZW12_H

#include <stddef.h>
#include <stdint.h>

namespace bench {

inline constexpr uint32_t kLzwClear = 256, kLzwFirst = 257, kLzwCodes = 4096;

class LzwEncoder {
 public:
  // Returns the bytes written; the output must hold 3 bytes for 2 of the input, and 6.
  size_t encode(const uint8_t* input, size_t length, uint8_t* output);

 private:
  static constexpr uint32_t kSlots = 8192;
  uint32_t slots_[kSlots];  // prefix << 20 | byte << 12 | code; 0 empty
};

class LzwDecoder {
 public:
  // Returns the bytes written, at most `capacity`; SIZE_MAX for a block that no encoder wrote or that does not fit.
  size_t decode(const uint8_t* input, size_t length, uint8_t* output, size_t capacity);

 private:
  struct Entry {
    uint16_t prefix;
    uint8_t first, last;
    uint32_t length;
  };
  Entry entries_[kLzwCodes];
  bool literals_ = false;
};

}  // namespace bench

#endif
