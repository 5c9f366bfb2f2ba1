// The tower block: text length (most significant byte first), text, a zero byte, number of digits, the user number in
// decimal.
#include <string.h>

#include <algorithm>

#include "log/event_blocks.h"
#include "xcsf.h"
#include "xtr.h"

namespace plov::log {

bool build_tower_data(uint16_t user, const char* text, EventBlocks* blocks) {
  xtr_trace("XLOG   F: -> build_tower_data");
  bool built = true;
  if (text) {
    char digits[6];
    xcsf_short2decchar(digits, user, XCSF_STRIP);
    const auto digit_count = static_cast<uint32_t>(strlen(digits));
    // A longer text would push the number behind what the log keeps of a block.
    const auto length = static_cast<uint32_t>(strnlen(text, XLOG_MAX_BLOCK_SIZE - digit_count - 4));
    const uint32_t size = length + digit_count + 4;
    frame::Owned<uint8_t> data = zeroed(size);
    if (uint8_t* const block = data.get()) {
      block[0] = static_cast<uint8_t>(length >> 8);
      block[1] = static_cast<uint8_t>(length);
      memcpy(block + 2, text, length);
      block[length + 3] = static_cast<uint8_t>(digit_count);
      std::copy_n(digits, digit_count, block + length + 4);
      xtr_trace("XLOG   F: tower_data=");
      xtr_dump_bytes(block, size);
    }
    built = blocks->push_front(XLOG_TOWER_BLOCK_ID, std::move(data), size);
  }
  xtr_trace("XLOG   F: <- build_tower_data");
  return built;
}

}  // namespace plov::log
