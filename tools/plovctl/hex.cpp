#include "hex.h"

#include <charconv>
#include <cstdio>

namespace plov::ctl {
namespace {

int digit_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool has_hex_prefix(std::string_view text) {
  return text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
}

}  // namespace

std::string hex(uint64_t value, int digits) {
  char text[24];
  snprintf(text, sizeof text, "0x%0*llX", digits, static_cast<unsigned long long>(value));
  return text;
}

std::string hex_bytes(Bytes bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

std::string base64(Bytes bytes) {
  static constexpr char kLetters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (size_t i = 0; i < bytes.size(); i += 3) {
    const size_t left = bytes.size() - i;
    const uint32_t group = bytes[i] << 16 | (left > 1 ? bytes[i + 1] << 8 : 0) | (left > 2 ? bytes[i + 2] : 0);
    text += kLetters[group >> 18];
    text += kLetters[group >> 12 & 63];
    text += left > 1 ? kLetters[group >> 6 & 63] : '=';
    text += left > 2 ? kLetters[group & 63] : '=';
  }
  return text;
}

std::optional<std::vector<uint8_t>> parse_hex_bytes(std::string_view text) {
  if (has_hex_prefix(text)) text.remove_prefix(2);
  std::vector<uint8_t> bytes;
  int high = -1;
  for (char c : text) {
    if (high < 0 && (c == ' ' || c == ':')) continue;
    const int value = digit_value(c);
    if (value < 0) return std::nullopt;
    if (high < 0) {
      high = value;
    } else {
      bytes.push_back(static_cast<uint8_t>(high << 4 | value));
      high = -1;
    }
  }
  if (high >= 0) return std::nullopt;
  return bytes;
}

std::optional<uint32_t> parse_number(std::string_view text, uint32_t maximum) {
  const bool hexadecimal = has_hex_prefix(text);
  if (hexadecimal) text.remove_prefix(2);
  uint32_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, hexadecimal ? 16 : 10);
  if (error != std::errc() || end != text.data() + text.size() || value > maximum) return std::nullopt;
  return value;
}

std::string hexdump(Bytes bytes, std::string_view indent) {
  std::string text;
  for (size_t start = 0; start < bytes.size(); start += 16) {
    char cell[32];
    text += indent;
    snprintf(cell, sizeof cell, "%04zx ", start);
    text += cell;
    std::string letters;
    for (size_t i = start; i < start + 16; ++i) {
      if (i % 8 == 0) text += ' ';
      if (i >= bytes.size()) {
        text += "   ";
        continue;
      }
      snprintf(cell, sizeof cell, "%02x ", bytes[i]);
      text += cell;
      letters += bytes[i] >= 0x20 && bytes[i] < 0x7F ? static_cast<char>(bytes[i]) : '.';
    }
    text += " " + letters + "\n";
  }
  return text;
}

}  // namespace plov::ctl
