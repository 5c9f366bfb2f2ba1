// The readable source of the map of system values, and the files that are made of it.
#ifndef PLOV_CTL_MAP_SOURCE_H
#define PLOV_CTL_MAP_SOURCE_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace plov::ctl {

// A value as people write it: a number, "text" (with \" \\ \n \t \xNN) or hex: and pairs of digits. It is filled up
// with zeros to `size` bytes; nothing when it is none of these or too long.
std::optional<std::string> parse_map_value(std::string_view text, size_t size);

struct MapFiles {
  std::string error;                         // "line 3: ..." when there is one; then no files
  std::map<std::string, std::string> files;  // by name
};
MapFiles build_map(std::string_view source);

}  // namespace plov::ctl

#endif
