// Between UTF-8 and Java's UTF-16. (What JNI calls UTF is another encoding: two bytes for U+0000, six beyond U+FFFF.)
#ifndef PLOV_BRIDGE_UTF8_H
#define PLOV_BRIDGE_UTF8_H

#include <stddef.h>
#include <stdint.h>

#include <span>
#include <string_view>

namespace plov::bridge {

// Writes at most as many units as there are bytes, and returns their number. Each byte that belongs to no character
// becomes U+FFFD.
size_t to_utf16(std::string_view bytes, uint16_t* units);

// The bytes that to_utf8 writes, at most three for each unit. A lone surrogate becomes U+FFFD.
size_t utf8_length(std::span<const uint16_t> units);
size_t to_utf8(std::span<const uint16_t> units, char* bytes);

// How many of the first `length` bytes are left when a character that they cut in two is dropped.
size_t whole_characters(const char* text, size_t length);

}  // namespace plov::bridge

#endif
