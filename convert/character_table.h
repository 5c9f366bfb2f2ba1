// Letters and digits of both worlds, in the order that gives a position its meaning.
#ifndef PLOV_CONVERT_CHARACTER_TABLE_H
#define PLOV_CONVERT_CHARACTER_TABLE_H

#include "convert/code_page.h"

namespace plov::convert {

// A position below 16 is an upper-case hexadecimal digit, below 22 one of either case, below 62 a letter or digit.
inline constexpr size_t kRowLength = 62;
inline constexpr uint8_t kHexDigits = 22;
inline constexpr uint8_t kAbsent = 0xFF;

using Row = std::array<uint8_t, kRowLength>;

constexpr Row row_in(const CodePage& page) {
  const Table place = same_characters(kAscii, page);
  Row row{};
  for (size_t position = 0; const char character : std::string_view("0123456789ABCDEFabcdef"
                                                                    "GHIJKLMNOPQRSTUVWXYZghijklmnopqrstuvwxyz"))
    row[position++] = place[static_cast<uint8_t>(character)];
  return row;
}

// Row XCSF_ASCII, row XCSF_EBCDIC.
inline constexpr std::array<Row, 2> transtable = {row_in(kAscii), row_in(kPage500)};
static_assert(sizeof transtable == 124);

// The same read the other way: the position of each byte in its row.
constexpr Table positions_of(const Row& row) {
  Table positions;
  positions.fill(kAbsent);
  for (size_t position = 0; position < row.size(); ++position)
    positions[row[position]] = static_cast<uint8_t>(position);
  return positions;
}
inline constexpr std::array<Table, 2> kPositions = {positions_of(transtable[XCSF_ASCII]),
                                                    positions_of(transtable[XCSF_EBCDIC])};

// What a position is worth as a digit: lower-case letters, 16 to 21, as the upper-case ones. Whoever takes letters
// beyond F gets more than 15.
constexpr uint8_t digit_value(uint8_t position) {
  return position > 15 ? static_cast<uint8_t>(position - 6) : position;
}

}  // namespace plov::convert

#endif
