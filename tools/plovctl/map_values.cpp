#include "map_values.h"

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "escape.h"
#include "hex.h"

namespace plov::ctl {
namespace {

constexpr size_t kLargestNumber = 8;

bool printable(const std::string& text) {
  for (char c : text)
    if (c < ' ' || c > '~') return false;
  return !text.empty();
}

std::string quoted(const std::string& text) {
  std::string shown = "\"";
  for (char c : text) {
    char cell[8];
    if (c == '"' || c == '\\') {
      shown += std::string("\\") + c;
    } else if (c < ' ' || c > '~') {
      snprintf(cell, sizeof cell, "\\x%02X", static_cast<unsigned char>(c));
      shown += cell;
    } else {
      shown += c;
    }
  }
  return shown + "\"";
}

}  // namespace

std::string show_map_value(const std::string& bytes, const std::string& as) {
  const std::string text = bytes.substr(0, bytes.find_last_not_of('\0') + 1);
  const size_t size = bytes.size();
  const bool is_number = size == 1 || size == 2 || size == 4 || size == kLargestNumber;
  if (as == "text" || (as == "auto" && printable(text) && !is_number)) return quoted(text);
  if ((as == "number" && size <= kLargestNumber) || (as == "auto" && is_number)) {
    uint64_t value = 0;
    memcpy(&value, bytes.data(), size);
    return std::to_string(value);
  }
  return "hex:" + hex_bytes({reinterpret_cast<const uint8_t*>(bytes.data()), size});
}

}  // namespace plov::ctl
