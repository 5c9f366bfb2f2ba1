#include <errno.h>
#include <string.h>

#include <algorithm>

#include "log/codec/codec.h"
#include "log/codec/dictionary.h"
#include "xtr.h"

namespace plov::codec {

// An entry's string, as a piece of the output: both codes of the pair were expanded there one behind the other.
struct Span {
  uint32_t at;
  uint32_t length;
};

namespace {

// The codes of an encoded block. Only whole ones count: a block may have been cut anywhere.
class Reader {
 public:
  Reader(const xlog_mem_block& block, uint16_t* codes)
      : input_(static_cast<const uint8_t*>(block.input)), left_(count(block.input_length)), codes_(codes) {}

  static uint32_t count(uint32_t input_length) {
    if (input_length <= kHeaderSize) return 0;
    const uint32_t bytes = input_length - kHeaderSize;
    return bytes / 3 * 2 + (bytes % 3 == 2);
  }

  const uint16_t* codes() const { return codes_; }

  // The next code; kEnd when there is none.
  uint32_t next() {
    if (at_ == filled_) unpack();
    return codes_[at_++];
  }

 private:
  void unpack() {
    filled_ = std::min(left_, kGroup);
    left_ -= filled_;
    at_ = 0;
    const uint8_t* in = input_ + read_;
    for (uint32_t i = 0; i + 1 < filled_; i += 2, in += 3) {
      const uint32_t both = static_cast<uint32_t>(in[0]) << 16 | static_cast<uint32_t>(in[1]) << 8 | in[2];
      codes_[i] = static_cast<uint16_t>(both >> 12);
      codes_[i + 1] = static_cast<uint16_t>(both & 0xFFF);
    }
    if (filled_ % 2 != 0) codes_[filled_ - 1] = static_cast<uint16_t>(in[0] << 4 | in[1] >> 4);
    if (filled_ == 0) codes_[filled_++] = kEnd;
    read_ += filled_ / 2 * 3;
  }

  const uint8_t* input_;
  uint32_t read_ = kHeaderSize;
  uint32_t left_;
  uint16_t* codes_;
  uint32_t at_ = 0, filled_ = 0;
};

// The expanded bytes. A pair is copied from where its two codes were expanded, so that no chain of pairs costs more
// than the bytes that it yields, nor anything when it yields none.
class Output {
 public:
  Output(const xlog_mem_block& block, Span* spans)
      : bytes_(static_cast<uint8_t*>(block.output)), capacity_(block.output_length), spans_(spans) {}

  uint32_t length() const { return length_; }

  // Appends what a live code but kEnd yields. False when it did not all fit; then the output is full.
  bool expand(uint32_t code) {
    const uint32_t room = capacity_ - length_;
    uint8_t* to = bytes_ + length_;
    if (code < kSilent) {
      if (room == 0) return false;
      *to = static_cast<uint8_t>(code - 1);
      ++length_;
      return true;
    }
    if (code == kSilent) return true;
    const Span span = spans_[code - kFirstPair];
    const uint8_t* from = bytes_ + span.at;
    if (span.length <= 2 * kStep && room >= 2 * kStep) {
      // Most strings are short; what is written too much is written over. It may reach into `from`, hence by way of a
      // word; one after the other, as a load of both would wait for the words just stored.
      uint64_t word;
      memcpy(&word, from, kStep);
      memcpy(to, &word, kStep);
      memcpy(&word, from + kStep, kStep);
      memcpy(to + kStep, &word, kStep);
    } else if (span.length <= room) {
      memcpy(to, from, span.length);
    } else {
      memcpy(to, from, room);
      length_ = capacity_;
      return false;
    }
    length_ += span.length;
    return true;
  }

  // Gives a pair the output from `at` on.
  void name(uint32_t entry, uint32_t at) { spans_[entry - kFirstPair] = {at, length_ - at}; }

 private:
  static constexpr uint32_t kStep = 8;

  uint8_t* bytes_;
  uint32_t capacity_;
  Span* spans_;
  uint32_t length_ = 0;
};

// False when the block ends before its end code: at a code that is not live, or with a full output.
bool expand_codes(Reader& reader, Output& output, Dictionary& dictionary) {
  uint32_t previous = reader.next(), code = kEnd;
  if (previous == kEnd) return true;
  if (previous >= kFirstPair || !output.expand(previous)) return false;
  uint32_t start = 0;  // of what the previous code yielded
  for (uint32_t entry = kFirstPair; entry < kEntries; ++entry) {
    code = reader.next();
    if (code == kEnd) return true;
    const uint32_t next_start = output.length();
    // What is not yet made is not live.
    if (code >= entry || !output.expand(code)) return false;
    output.name(entry, start);
    start = next_start;
  }
  dictionary.fill(reader.codes());
  for (previous = code; (code = reader.next()) != kEnd; previous = code) {
    const uint32_t entry = dictionary.recycle(), next_start = output.length();
    // Only what was just recycled is not live.
    if (code == entry || !output.expand(code)) return false;
    output.name(entry, start);
    dictionary.make(entry, previous, code);
    start = next_start;
  }
  return true;
}

}  // namespace

// The order of these allocations, their codes and their texts are fixed: service reads from the code which one failed.
uint32_t Decoder::reserve(uint32_t codes) {
  const uint32_t code_room = std::min(codes, kGroup) + 1, entries = std::min(codes + 1, kPairs);
  room_ = 0;
  codes_.reset(static_cast<uint16_t*>(PLOV_MALLOC(code_room * sizeof(uint16_t))));
  if (!codes_) return XLOG_DECODE_NO_CODES;
  spans_.reset(static_cast<Span*>(PLOV_MALLOC(entries * sizeof(Span))));
  if (!spans_) {
    xtr_trace("XLOG   F: malloc failed with %d", errno);
    return XLOG_DECODE_NO_STAGING;
  }
  dictionary_.reset(static_cast<Dictionary*>(PLOV_MALLOC(codes > kPairs ? sizeof(Dictionary) : 1)));
  if (!dictionary_) {
    xtr_trace("XLOG   F: malloc 1 failed with %d", errno);
    return XLOG_DECODE_NO_DICTIONARY;
  }
  room_ = codes;
  return 0;
}

int32_t Decoder::decode(xlog_mem_block& block, uint32_t* comprc) {
  *comprc = 0;
  const uint32_t length = block.input_length;
  if (length == 0) {
    block.output_length = 0;
    return 0;
  }
  const uint8_t* input = static_cast<const uint8_t*>(block.input);
  if (input[0] == kStored) {
    // The capacity is not looked at: callers size their output by the input and leave the field as it is.
    if (length > 1) memcpy(block.output, input + 1, length - 1);
    block.output_length = length - 1;
    xtr_trace("XLOG   D: block not tersed");
    return 0;
  }
  const uint32_t codes = std::max(Reader::count(length), 1u);
  if (room_ < codes) {
    *comprc = reserve(codes);
    if (*comprc != 0) {
      block.output_length = 0;
      return 2;
    }
  }
  xtr_trace("XLOG   D: source data size = %d", length);
  Reader reader(block, codes_.get());
  Output output(block, spans_.get());
  const bool whole = expand_codes(reader, output, *dictionary_);
  if (!whole) *comprc = XLOG_DECODE_CUT;
  xtr_trace("XLOG   D: outputcount = %d", output.length());
  block.output_length = output.length();
  return whole ? 0 : 2;
}

int32_t decode(xlog_mem_block& block, uint32_t* comprc) {
  return Decoder().decode(block, comprc);
}

}  // namespace plov::codec
