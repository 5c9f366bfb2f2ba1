// Numbers to and from fixed-width hexadecimal and decimal text.
#include <string.h>

#include "convert/character_table.h"
#include "xcsf.h"

using namespace plov::convert;

namespace {

template <size_t kDigits>
void write_decimal(char* text, uint32_t value, int32_t strip) {
  for (size_t i = kDigits; i-- > 0; value /= 10) text[i] = static_cast<char>('0' | value % 10);
  text[kDigits] = 0;
  if (strip != XCSF_STRIP) return;
  while (text[0] == '0' && text[1] != 0) memmove(text, text + 1, strlen(text));
}

}  // namespace

void xcsf_int2char(char* text, uint32_t value, uint32_t count) {
  for (uint32_t byte = count; byte-- > 0;) {
    const auto bits = static_cast<uint8_t>(byte < sizeof value ? value >> 8 * byte : 0);
    text = xcsf_unpack_hex(text, &bits, 1, XCSF_ASCII);
  }
  *text = 0;
}

void xcsf_far2char(char* text, uint32_t value) {
  xcsf_int2char(text, value, sizeof value);
}

// Callers tell 0 by the empty text: the last zero goes too, unlike in decimal. Ten bytes move whatever their number of
// digits, and callers have laid out their buffers for it.
void xcsf_long2char(char* text, uint32_t value, int32_t strip) {
  xcsf_far2char(text, value);
  if (strip != XCSF_STRIP) return;
  while (text[0] == '0') memmove(text, text + 1, 10);
}

void xcsf_short2decchar(char* text, uint16_t value, int32_t strip) {
  write_decimal<5>(text, value, strip);
}

void xcsf_long2decchar(char* text, uint32_t value, int32_t strip) {
  write_decimal<10>(text, value, strip);
}

// Blanks and NULs are passed over, not ended on, and letters beyond F are taken with all their bits: host programs hand
// over padded fields, and have never been refused a letter.
uint32_t xcsf_char2int(uint32_t* value, const char* text, uint32_t length) {
  *value = 0;
  if (length < 1 || length > 8) return XCSF_BAD_LENGTH;
  for (uint32_t i = 0; i < length; ++i) {
    if (text[i] == ' ' || text[i] == 0) continue;
    const uint8_t position = kPositions[XCSF_ASCII][static_cast<uint8_t>(text[i])];
    if (position == kAbsent) return i + 1;
    *value = *value << 4 | digit_value(position);
  }
  return 0;
}

uint32_t xcsf_char2long(uint32_t* value, const char* text, uint32_t length) {
  return xcsf_char2int(value, text, length);
}

uint32_t xcsf_decchar2int(uint32_t* value, const char* text, uint32_t length) {
  if (length < 1 || length > 10) return XCSF_BAD_LENGTH;
  uint32_t multiplier = 1;
  for (uint32_t i = 1; i < length; ++i) multiplier *= 10;
  *value = 0;
  for (uint32_t i = 0; i < length; ++i, multiplier /= 10) {
    const uint8_t digit = kPositions[XCSF_ASCII][static_cast<uint8_t>(text[i])];
    if (digit > 9) return i + 1;
    *value += digit * multiplier;
  }
  return 0;
}
