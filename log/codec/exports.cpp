#include <stddef.h>
#include <string.h>

#include "frame/call.h"
#include "log/codec/codec.h"
#include "xlog.h"

namespace {

using plov::frame::Call;

// The call block, copied in and its length copied out: it may lie at any address.
xlog_mem_block load(const xlog_mem_block* block) {
  xlog_mem_block copy;
  memcpy(&copy, block, sizeof copy);
  return copy;
}

void store_output_length(xlog_mem_block* block, uint32_t length) {
  memcpy(reinterpret_cast<uint8_t*>(block) + offsetof(xlog_mem_block, output_length), &length, sizeof length);
}

// A stored block is copied whatever the capacity, so its whole length must be writable.
uint32_t bytes_to_write(const xlog_mem_block& block) {
  const bool stored = block.input_length > 0 && *static_cast<const uint8_t*>(block.input) == plov::codec::kStored;
  return stored ? block.input_length - 1 : block.output_length;
}

}  // namespace

int32_t xlog_mem_encode(xlog_mem_block* block, uint32_t* comprc) {
  Call call("xlog_mem_encode", "XLOG   T: -> xlog_mem_encode", "XLOG   T: <- xlog_mem_encode", comprc);
  if (call.writable(block, sizeof *block, XLOG_ENCODE_BAD_ARGUMENT)) {
    xlog_mem_block copy = load(block);
    if (call.readable(copy.input, copy.input_length, XLOG_ENCODE_BAD_ARGUMENT) &&
        call.writable(copy.output, copy.output_length, XLOG_ENCODE_BAD_ARGUMENT)) {
      call.set_comprc(plov::codec::encode(copy));
      store_output_length(block, copy.output_length);
    }
  }
  // Callers look at the reason code alone.
  if (call.comprc_usable()) call.set_sysrc(0);
  return call.leave();
}

int32_t xlog_mem_decode(xlog_mem_block* block, uint32_t* comprc) {
  Call call("xlog_mem_decode", "XLOG   T: -> xlog_mem_decode", "XLOG   T: <- xlog_mem_decode", comprc);
  if (call.writable(block, sizeof *block, XLOG_DECODE_BAD_ARGUMENT)) {
    xlog_mem_block copy = load(block);
    if (call.readable(copy.input, copy.input_length, XLOG_DECODE_BAD_ARGUMENT) &&
        call.writable(copy.output, bytes_to_write(copy), XLOG_DECODE_BAD_ARGUMENT)) {
      uint32_t code = 0;
      if (plov::codec::decode(copy, &code) != 0) call.refuse(code);
      store_output_length(block, copy.output_length);
    }
  }
  return call.leave();
}
