// The map of system values as the tool shows it.
#ifndef PLOV_CTL_MAP_VALUES_H
#define PLOV_CTL_MAP_VALUES_H

#include <string>

namespace plov::ctl {

// `as` is auto, number, text or hex. Auto: a number of 1, 2, 4 or 8 bytes; a printable text, whose NULs at the end go;
// else hex. What does not fit the wish is shown as hex. The result can be handed to parse_map_value.
std::string show_map_value(const std::string& bytes, const std::string& as);

}  // namespace plov::ctl

#endif
