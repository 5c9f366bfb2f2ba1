// Numbers and bytes as text, and back.
#ifndef PLOV_CTL_HEX_H
#define PLOV_CTL_HEX_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace plov::ctl {

using Bytes = std::span<const uint8_t>;

std::string hex(uint64_t value, int digits);  // "0xE4": upper case, at least `digits`
std::string hex_bytes(Bytes bytes);           // "ff0003", nothing between
std::string base64(Bytes bytes);              // with padding

// Pairs of hexadecimal digits; blanks, colons and a leading 0x are allowed between and before them.
std::optional<std::vector<uint8_t>> parse_hex_bytes(std::string_view text);

// A whole number, decimal or 0x and hexadecimal, at most `maximum`.
std::optional<uint32_t> parse_number(std::string_view text, uint32_t maximum);

// Lines of 16 bytes: offset, bytes, text; each begins with `indent` and ends with a newline.
std::string hexdump(Bytes bytes, std::string_view indent);

}  // namespace plov::ctl

#endif
