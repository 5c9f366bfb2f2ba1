// The block codec, as the recorder and the reader call it. Nothing here probes: xlog_mem_encode and xlog_mem_decode do.
//
// An encoded block is a file format:
//
//   offset  size
//        0     4  05 01 04 00; any first byte below 0xFF marks an encoded block
//        4     8  not written by the encoder, not read by the decoder
//       12        codes of 12 bits, two in three bytes: c1 >> 4, (c1 & 15) << 4 | c2 >> 8, c2 & 255
//
//   code     0        end of data
//            1..256   the byte code - 1
//            257      no byte
//            258..    a pair of two earlier codes, see dictionary.h
//
// A stored block is the byte 0xFF and the data as they stand.
#ifndef PLOV_LOG_CODEC_CODEC_H
#define PLOV_LOG_CODEC_CODEC_H

#include "frame/memory.h"
#include "xlog.h"

namespace plov::codec {

struct Dictionary;
struct LiveString;
struct Span;

inline constexpr uint8_t kStored = 0xFF;
inline constexpr uint32_t kHeaderSize = 12;
// Codes pass through a buffer of this many; the encoder looks at the output's capacity once for each bufferful.
inline constexpr uint32_t kGroup = 10240;

// Encodes blocks, one after the other, with the same tables; they grow to the largest block.
class Encoder {
 public:
  // Encodes block.input and sets block.output_length. The reason code is 0, XLOG_ENCODE_NO_CODES, XLOG_ENCODE_NO_TABLE
  // to + 4, or XLOG_ENCODE_CUT to + 3. Bytes 4 to 11 of the output stay as they are.
  uint32_t encode(xlog_mem_block& block);

 private:
  uint32_t reserve_tables(uint32_t input_length);

  uint32_t code_room_ = 0;   // codes that codes_ takes
  uint32_t table_room_ = 0;  // input bytes that the other tables are made for
  frame::Owned<uint16_t> codes_;
  frame::Owned<uint16_t> links_;
  frame::Owned<uint16_t> places_;
  frame::Owned<Dictionary> dictionary_;
  frame::Owned<LiveString> strings_;
  frame::Owned<uint16_t> marks_;
};

// Expands blocks, one after the other, with the same tables; they grow to the largest block.
class Decoder {
 public:
  // Expands block.input and sets block.output_length. Result 0 or 2, with the reason code 0, XLOG_DECODE_NO_CODES to
  // + 2, or XLOG_DECODE_CUT. Bytes of the output behind its new length may have been written.
  int32_t decode(xlog_mem_block& block, uint32_t* comprc);

 private:
  uint32_t reserve(uint32_t codes);

  uint32_t room_ = 0;  // codes that the tables are made for
  frame::Owned<uint16_t> codes_;
  frame::Owned<Span> spans_;
  frame::Owned<Dictionary> dictionary_;
};

// One block with tables of its own.
uint32_t encode(xlog_mem_block& block);
int32_t decode(xlog_mem_block& block, uint32_t* comprc);

}  // namespace plov::codec

#endif
