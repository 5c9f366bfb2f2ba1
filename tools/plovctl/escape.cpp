#include "escape.h"

#include <cstdint>
#include <cstdio>

namespace plov::ctl {
namespace {

struct Character {
  uint32_t code;
  size_t length;  // 0: no well-formed character begins here
};

Character decode(std::string_view bytes) {
  const auto at = [&](size_t i) { return static_cast<uint8_t>(bytes[i]); };
  const uint8_t first = at(0);
  if (first < 0x80) return {first, 1};
  const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || bytes.size() < length) return {0, 0};
  uint32_t code = first & (0x7Fu >> length);
  for (size_t i = 1; i < length; ++i) {
    if ((at(i) & 0xC0) != 0x80) return {0, 0};
    code = code << 6 | (at(i) & 0x3F);
  }
  static constexpr uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  if (code < kSmallest[length] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return {0, 0};
  return {code, length};
}

// Characters that move the cursor, turn the writing direction or leave no mark.
bool is_hidden(uint32_t code) {
  return code < 0x20 || (code >= 0x7F && code < 0xA0) || code == 0xAD || code == 0x61C || code == 0x180E ||
         (code >= 0x200B && code <= 0x200F) || (code >= 0x2028 && code <= 0x202E) ||
         (code >= 0x2060 && code <= 0x206F) || code == 0xFEFF || (code >= 0xFFF9 && code <= 0xFFFB) ||
         (code >= 0xE0000 && code <= 0xE0FFF);
}

void append_escaped(std::string& text, std::string_view bytes) {
  for (char c : bytes) {
    char cell[8];
    switch (c) {
      case '\n':
        text += "\\n";
        break;
      case '\r':
        text += "\\r";
        break;
      case '\t':
        text += "\\t";
        break;
      default:
        snprintf(cell, sizeof cell, "\\x%02X", static_cast<uint8_t>(c));
        text += cell;
    }
  }
}

}  // namespace

std::string escape(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  while (!bytes.empty()) {
    const Character character = decode(bytes);
    const size_t length = character.length == 0 ? 1 : character.length;
    const std::string_view piece = bytes.substr(0, length);
    if (character.length == 0 || is_hidden(character.code))
      append_escaped(text, piece);
    else if (character.code == '\\')
      text += "\\\\";
    else
      text += piece;
    bytes.remove_prefix(length);
  }
  return text;
}

std::string_view trim_field(const char* field, size_t size) {
  while (size > 0 && (field[size - 1] == '\0' || field[size - 1] == ' ')) --size;
  return {field, size};
}

bool is_utf8(std::string_view bytes) {
  while (!bytes.empty()) {
    const Character character = decode(bytes);
    if (character.length == 0) return false;
    bytes.remove_prefix(character.length);
  }
  return true;
}

}  // namespace plov::ctl
