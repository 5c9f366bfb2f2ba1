#include <errno.h>
#include <string.h>

#include <algorithm>

#include "log/codec/codec.h"
#include "log/codec/dictionary.h"
#include "log/codec/live_strings.h"
#include "xtr.h"

namespace plov::codec {
namespace {

constexpr uint8_t kHeader[4] = {0x05, 0x01, 0x04, 0x00};

// The codes on their way to the output.
class Writer {
 public:
  Writer(uint16_t* codes, uint8_t* output, uint32_t capacity) : codes_(codes), output_(output), capacity_(capacity) {
    // Position 12 stands even where the output ends before it: then no code follows.
    for (uint32_t i = 0; i < sizeof kHeader && i < capacity; ++i) output[i] = kHeader[i];
  }

  const uint16_t* codes() const { return codes_; }
  uint32_t position() const { return position_; }

  // Gathers a code; false when a group was full and had to be cut.
  bool add(uint32_t code) {
    codes_[count_++] = static_cast<uint16_t>(code);
    return count_ < kGroup || write();
  }

  // Writes the group. A last code without a partner is dropped, yet counts against the capacity.
  bool write() {
    const uint32_t room = capacity_ > position_ ? capacity_ - position_ : 0;
    const bool fits = count_ * 3 / 2 <= room;
    if (!fits) count_ = room * 2 / 3;
    uint8_t* out = output_ + position_;
    for (uint32_t i = 0; i + 1 < count_; i += 2) {
      const uint32_t one = codes_[i], two = codes_[i + 1];
      *out++ = static_cast<uint8_t>(one >> 4);
      *out++ = static_cast<uint8_t>(one << 4 | two >> 8);
      *out++ = static_cast<uint8_t>(two);
    }
    position_ += count_ / 2 * 3;
    count_ = 0;
    return fits;
  }

 private:
  uint16_t* codes_;
  uint8_t* output_;
  uint32_t capacity_;
  uint32_t position_ = kHeaderSize;
  uint32_t count_ = 0;
};

// Everything but the end codes; false when the capacity cut some.
bool write_data(Writer& writer, LiveStrings strings, Dictionary* dictionary, const uint8_t* input, uint32_t length) {
  if (length == 0) return writer.add(kEnd);
  // The first code is a byte's: there is no pair yet.
  Match previous{input[0] + 1u, 1};
  writer.add(previous.code);
  uint32_t at = 1;
  for (uint32_t entry = kFirstPair; at < length && entry < kEntries; ++entry) {
    const Match match = strings.longest_while_filling(at);
    writer.add(match.code);
    strings.insert(entry, at - previous.length, previous.length + match.length);
    at += match.length;
    previous = match;
  }
  if (at < length) dictionary->fill(writer.codes());
  while (at < length) {
    const uint32_t entry = dictionary->recycle();
    strings.remove(entry);
    const Match match = strings.longest(at);
    if (!writer.add(match.code)) return false;
    strings.insert(entry, at - previous.length, previous.length + match.length);
    dictionary->make(entry, previous.code, match.code);
    at += match.length;
    previous = match;
  }
  return writer.add(kEnd);
}

}  // namespace

// The order of these allocations, their codes and their texts are fixed: service reads from the code which one failed.
uint32_t Encoder::reserve_tables(uint32_t input_length) {
  const uint32_t entries = LiveStrings::entries(input_length);
  table_room_ = 0;
  links_.reset(static_cast<uint16_t*>(PLOV_MALLOC(LiveStrings::links(input_length) * sizeof(uint16_t))));
  if (!links_) {
    xtr_trace("XLOG   F: Memory allocate 1 failed with %d", errno);
    return XLOG_ENCODE_NO_TABLE;
  }
  places_.reset(static_cast<uint16_t*>(PLOV_MALLOC(entries * sizeof(uint16_t))));
  if (!places_) {
    xtr_trace("XLOG   F: Memory allocate 2 failed with %d", errno);
    return XLOG_ENCODE_NO_TABLE + 1;
  }
  dictionary_.reset(static_cast<Dictionary*>(PLOV_MALLOC(input_length > kPairs ? sizeof(Dictionary) : 1)));
  if (!dictionary_) {
    xtr_trace("XLOG   F: Memory allocate 3 failed with %d", errno);
    return XLOG_ENCODE_NO_TABLE + 2;
  }
  strings_.reset(static_cast<LiveString*>(PLOV_MALLOC(entries * sizeof(LiveString))));
  if (!strings_) {
    xtr_trace("XLOG   F: Memory allocate 4 failed with %d", errno);
    return XLOG_ENCODE_NO_TABLE + 3;
  }
  marks_.reset(static_cast<uint16_t*>(PLOV_MALLOC(LiveStrings::marks(input_length) * sizeof(uint16_t))));
  if (!marks_) {
    xtr_trace("XLOG   F: Memory allocate 5 failed with %d", errno);
    return XLOG_ENCODE_NO_TABLE + 4;
  }
  table_room_ = input_length;
  return 0;
}

uint32_t Encoder::encode(xlog_mem_block& block) {
  const uint32_t length = block.input_length;
  const uint32_t codes = std::min(length, kGroup) + 4;
  if (code_room_ < codes) {
    code_room_ = 0;
    codes_.reset(static_cast<uint16_t*>(PLOV_MALLOC(codes * sizeof(uint16_t))));
    if (!codes_) {
      xtr_trace("XLOG   F: Memory allocate failed with %d", errno);
      block.output_length = 0;
      return XLOG_ENCODE_NO_CODES;
    }
    code_room_ = codes;
  }
  Writer writer(codes_.get(), static_cast<uint8_t*>(block.output), block.output_length);
  block.output_length = writer.position();
  // One more than the input: an empty block has tables too.
  const uint32_t room = std::min(length, kPairs) + 1;
  if (table_room_ < room) {
    if (const uint32_t code = reserve_tables(room); code != 0) return code;
  }
  const uint8_t* input = static_cast<const uint8_t*>(block.input);
  const LiveStrings strings({links_.get(), places_.get(), marks_.get(), strings_.get()}, input, length);

  uint32_t code = 0;
  if (!write_data(writer, strings, dictionary_.get(), input, length))
    code = XLOG_ENCODE_CUT;
  else if (!writer.add(kEnd))
    code = XLOG_ENCODE_CUT + 1;
  else if (!writer.add(kEnd))
    code = XLOG_ENCODE_CUT + 2;
  else if (!writer.add(kEnd) || !writer.write())
    code = XLOG_ENCODE_CUT + 3;
  block.output_length = writer.position();
  return code;
}

uint32_t encode(xlog_mem_block& block) {
  return Encoder().encode(block);
}

}  // namespace plov::codec
