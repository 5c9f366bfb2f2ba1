// Bytes to and from pairs of hexadecimal characters.
#include <string.h>

#include "convert/character_table.h"
#include "xcsf.h"

using namespace plov::convert;

namespace {

// The two characters of each byte in a row.
struct Digits {
  uint8_t high, low;
};
using DigitPairs = std::array<Digits, 256>;

constexpr DigitPairs digit_pairs(const Row& row) {
  DigitPairs pairs{};
  for (size_t byte = 0; byte < pairs.size(); ++byte) pairs[byte] = {row[byte >> 4], row[byte & 0x0F]};
  return pairs;
}
constexpr std::array<DigitPairs, 2> kDigitPairs = {digit_pairs(transtable[XCSF_ASCII]),
                                                   digit_pairs(transtable[XCSF_EBCDIC])};

// What each byte is worth as a digit of either case.
constexpr Table digit_values(const Table& positions) {
  Table values;
  values.fill(kAbsent);
  for (size_t byte = 0; byte < values.size(); ++byte)
    if (positions[byte] < kHexDigits) values[byte] = digit_value(positions[byte]);
  return values;
}
constexpr std::array<Table, 2> kDigitValues = {digit_values(kPositions[XCSF_ASCII]),
                                               digit_values(kPositions[XCSF_EBCDIC])};

}  // namespace

char* xcsf_unpack_hex(char* text, const void* bytes, uint32_t count, uint32_t row) {
  const auto* in = static_cast<const uint8_t*>(bytes);
  const DigitPairs& pairs = kDigitPairs[row];
  for (uint32_t i = 0; i < count; ++i, text += 2) memcpy(text, &pairs[in[i]], 2);
  *text = 0;
  return text;
}

uint32_t xcsf_pack_hex(void* bytes, const char* text, uint32_t count, uint32_t row) {
  auto* out = static_cast<uint8_t*>(bytes);
  const Table& values = kDigitValues[row];
  const auto value_at = [&](uint32_t i) { return values[static_cast<uint8_t>(text[i])]; };
  uint32_t i = 0;
  for (; count - i >= 2; i += 2) {
    const uint8_t high = value_at(i), low = value_at(i + 1);
    if ((high | low) > 15) break;
    *out++ = static_cast<uint8_t>(high << 4 | low);
  }
  // What is left: nothing, one last digit, or a pair with a bad one.
  if (i == count) return 0;
  const uint8_t high = value_at(i);
  if (high == kAbsent) return i + 1;
  *out = static_cast<uint8_t>(high << 4);
  return count - i == 1 ? 0 : i + 2;
}

char* xcsf_hex2char(char* text, const void* bytes, uint32_t count) {
  return xcsf_unpack_hex(text, bytes, count, XCSF_ASCII);
}

char* xcsf_hex2ebcdic(char* text, const void* bytes, uint32_t count) {
  return xcsf_unpack_hex(text, bytes, count, XCSF_EBCDIC);
}

uint32_t xcsf_char2hex(void* bytes, const char* text, uint32_t count) {
  return xcsf_pack_hex(bytes, text, count, XCSF_ASCII);
}

uint32_t xcsf_ebcdic2hex(void* bytes, const char* text, uint32_t count) {
  return xcsf_pack_hex(bytes, text, count, XCSF_EBCDIC);
}
