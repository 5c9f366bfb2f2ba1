// Turns blocks as they are stored into what was recorded, all in one buffer: each expansion replaces the last.
#ifndef PLOV_LOG_RETRIEVE_EXPAND_H
#define PLOV_LOG_RETRIEVE_EXPAND_H

#include <stdint.h>

#include "log/codec/codec.h"

namespace plov::log {

inline constexpr uint32_t kExpansionSize = 0x1FE00;

class Expander {
 public:
  // The buffer is the caller's, kExpansionSize bytes.
  explicit Expander(uint8_t* buffer) : buffer_(buffer) {}

  // Returns 0, or the codec's code when it has no memory for its tables. A damaged block is no failure: it gives the
  // bytes before the damage, and the rest of its event is still worth reading.
  uint32_t expand(const uint8_t* stored, uint32_t size) {
    xlog_mem_block block = {stored, size, buffer_, kExpansionSize};
    uint32_t code = 0;
    decoder_.decode(block, &code);
    size_ = block.output_length;
    return code >= XLOG_DECODE_NO_CODES && code <= XLOG_DECODE_NO_DICTIONARY ? code : 0;
  }

  // The last expansion; empty before the first one.
  const uint8_t* data() const { return buffer_; }
  uint32_t size() const { return size_; }

 private:
  uint8_t* buffer_;
  uint32_t size_ = 0;
  codec::Decoder decoder_;
};

}  // namespace plov::log

#endif
