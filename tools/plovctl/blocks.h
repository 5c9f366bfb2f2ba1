// What the blocks of an event are called, and what is in those whose layout is known.
#ifndef PLOV_CTL_BLOCKS_H
#define PLOV_CTL_BLOCKS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hex.h"

namespace plov::ctl {

const char* block_name(uint8_t id);  // "" for a caller's own id

// Fields in the block's order; none when the block's layout is not known or its size is another.
struct Field {
  const char* name;                // as JSON shows it
  std::string text;                // as people read it
  std::optional<uint32_t> number;  // where the value is one
};
using Fields = std::vector<Field>;
Fields decode_block(uint8_t id, Bytes data);

// A microcode log's number: "E4014902" and "1a".
struct ReferenceCode {
  std::string code, extension;
};
std::optional<ReferenceCode> reference_code(uint8_t classes, uint8_t type, Bytes error_block);

// The text of a backtrace or a trace, lines and all; nothing for other blocks and for bytes that are no text.
std::optional<std::string_view> block_text(uint8_t id, Bytes data);

// The process that recorded the event, from its standard block.
struct Recorder {
  std::string name;
  uint32_t process_id;
  uint32_t parent_process_id;
  uint32_t thread_id;
};
std::optional<Recorder> decode_standard_block(Bytes data);

}  // namespace plov::ctl

#endif
