#include "platform/host/bridge/utf8.h"

namespace plov::bridge {
namespace {

constexpr uint32_t kReplacement = 0xFFFD;

// The bytes of a character by its first one, 0 for what begins none.
size_t size_by_first(unsigned char first) {
  return first < 0x80 ? 1 : first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : first < 0xF5 ? 4 : 0;
}

bool continues(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// Takes one character off the front; a byte that belongs to none counts as U+FFFD.
uint32_t next_character(std::string_view& bytes) {
  const unsigned char first = static_cast<unsigned char>(bytes[0]);
  const size_t size = size_by_first(first);
  uint32_t character = size <= 1 ? first : first & (0xFFu >> (size + 1));
  bool good = size != 0 && size <= bytes.size();
  for (size_t i = 1; good && i < size; ++i) {
    good = continues(bytes[i]);
    character = character << 6 | (static_cast<unsigned char>(bytes[i]) & 0x3F);
  }
  // What a longer form says that a shorter could, the surrogates, and what lies beyond the last character.
  if (good && ((size == 3 && (character < 0x800 || (character & 0xFFFFF800) == 0xD800)) ||
               (size == 4 && (character < 0x10000 || character > 0x10FFFF))))
    good = false;
  bytes.remove_prefix(good ? size : 1);
  return good ? character : kReplacement;
}

uint32_t next_character(std::span<const uint16_t>& units) {
  const uint32_t first = units[0];
  const bool pair = (first & 0xFC00) == 0xD800 && units.size() > 1 && (units[1] & 0xFC00) == 0xDC00;
  const uint32_t character = pair                         ? 0x10000 + ((first & 0x3FF) << 10 | (units[1] & 0x3FF))
                             : (first & 0xF800) == 0xD800 ? kReplacement
                                                          : first;
  units = units.subspan(pair ? 2 : 1);
  return character;
}

}  // namespace

size_t to_utf16(std::string_view bytes, uint16_t* units) {
  uint16_t* unit = units;
  while (!bytes.empty()) {
    const uint32_t character = next_character(bytes);
    if (character < 0x10000) {
      *unit++ = static_cast<uint16_t>(character);
    } else {
      *unit++ = static_cast<uint16_t>(0xD7C0 + (character >> 10));
      *unit++ = static_cast<uint16_t>(0xDC00 | (character & 0x3FF));
    }
  }
  return static_cast<size_t>(unit - units);
}

size_t utf8_length(std::span<const uint16_t> units) {
  size_t length = 0;
  while (!units.empty()) {
    const uint32_t character = next_character(units);
    length += character < 0x80 ? 1 : character < 0x800 ? 2 : character < 0x10000 ? 3 : 4;
  }
  return length;
}

size_t to_utf8(std::span<const uint16_t> units, char* bytes) {
  char* byte = bytes;
  while (!units.empty()) {
    const uint32_t character = next_character(units);
    const int more = character < 0x80 ? 0 : character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
    constexpr uint32_t kFirst[] = {0, 0xC0, 0xE0, 0xF0};
    *byte++ = static_cast<char>(kFirst[more] | character >> (6 * more));
    for (int i = more - 1; i >= 0; --i) *byte++ = static_cast<char>(0x80 | (character >> (6 * i) & 0x3F));
  }
  return static_cast<size_t>(byte - bytes);
}

size_t whole_characters(const char* text, size_t length) {
  size_t start = length;
  while (start > 0 && length - start < 3 && continues(text[start - 1])) --start;
  if (start == 0) return length;
  const size_t size = size_by_first(static_cast<unsigned char>(text[start - 1]));
  return size > length - (start - 1) ? start - 1 : length;
}

}  // namespace plov::bridge
