// Arbitrary bytes encoded: they come back, and with less room the encoded bytes are the beginning of the whole ones.
#include "fuzz/support.h"
#include "log/codec/codec.h"

namespace {

constexpr uint32_t kCapacity = 0x1FE00;

uint32_t encode(const uint8_t* data, uint32_t size, uint8_t* output, uint32_t capacity, uint32_t* length) {
  const auto input = exact(data, size);
  memset(output, 0, capacity);
  xlog_mem_block block = {input.get(), size, output, capacity};
  const uint32_t comprc = plov::codec::encode(block);
  *length = block.output_length;
  return comprc;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > XLOG_MAX_BLOCK_SIZE) return 0;
  const auto encoded = std::make_unique<uint8_t[]>(kCapacity);
  uint32_t length;
  require(encode(data, static_cast<uint32_t>(size), encoded.get(), kCapacity, &length) == 0 && length <= kCapacity);

  const auto back = std::make_unique<uint8_t[]>(size + 1);
  xlog_mem_block block = {encoded.get(), length, back.get(), static_cast<uint32_t>(size)};
  uint32_t comprc = ~0u;
  require(plov::codec::decode(block, &comprc) == 0 && comprc == 0);
  require(block.output_length == size && memcmp(back.get(), data, size) == 0);

  const uint32_t room = 12 + (length - 12) / 2;
  const auto cut = std::make_unique<uint8_t[]>(room);
  uint32_t cut_length;
  encode(data, static_cast<uint32_t>(size), cut.get(), room, &cut_length);
  require(cut_length <= room && memcmp(cut.get(), encoded.get(), cut_length) == 0);
  return 0;
}
