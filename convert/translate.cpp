// ASCII and EBCDIC text: identifiers, which may hold letters and digits alone, and bytes for display.
#include "convert/character_table.h"
#include "xcsf.h"

using namespace plov::convert;

namespace {

// Letters, digits, blank, hyphen and underscore to their places in the other page, all else to its full stop.
constexpr Table display(const CodePage& from, const CodePage& to) {
  const Table all = same_characters(from, to);
  Table table;
  table.fill(same_characters(kAscii, to)['.']);
  for (size_t byte = 0; byte < from.size(); ++byte) {
    const char16_t c = from[byte];
    if ((c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == ' ' || c == '-' || c == '_')
      table[byte] = all[byte];
  }
  return table;
}

constexpr Table display_ebcdic2ascii = display(kPage500, kAscii);
constexpr Table display_ascii2ebcdic = display(kAscii, kPage500);

void translate(const Table& table, char* out, const char* in, uint32_t count) {
  for (uint32_t i = 0; i < count; ++i) out[i] = static_cast<char>(table[static_cast<uint8_t>(in[i])]);
}

}  // namespace

uint32_t xcsf_convert_code(char* out, const char* in, uint32_t count, uint32_t target_row, uint32_t source_row,
                           uint32_t row_length) {
  uint32_t done = 0;
  for (; done < count; ++done) {
    const uint8_t position = kPositions[source_row][static_cast<uint8_t>(in[done])];
    if (position == kAbsent || position >= row_length) break;
    out[done] = static_cast<char>(transtable[target_row][position]);
  }
  // Where the input ends is settled before the NUL is written, which may be its next character.
  const uint32_t bad = done < count ? done + 1 : 0;
  out[done] = 0;
  return bad;
}

uint32_t xcsf_ascii2ebcdic(char* out, const char* in, uint32_t count) {
  return xcsf_convert_code(out, in, count, XCSF_EBCDIC, XCSF_ASCII, kRowLength);
}

uint32_t xcsf_ebcdic2ascii(char* out, const char* in, uint32_t count) {
  return xcsf_convert_code(out, in, count, XCSF_ASCII, XCSF_EBCDIC, kRowLength);
}

void xcsf_da_ebcdic2ascii(char* out, const char* in, uint32_t count) {
  translate(display_ebcdic2ascii, out, in, count);
}

void xcsf_da_ascii2ebcdic(char* out, const char* in, uint32_t count) {
  translate(display_ascii2ebcdic, out, in, count);
}
