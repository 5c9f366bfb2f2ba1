// The text that lists the Java-served fields, "ywkzsfm.h".
#ifndef PLOV_SIM_SIZE_FILE_H
#define PLOV_SIM_SIZE_FILE_H

#include <stdint.h>

#include <string_view>

namespace plov::sim {

// The length of the first line "id, one character, length" of this id, read as scanf reads "%d %c %d"; 0 when there is
// none, or when its length is not 1 to 65,535. Lines that begin with "#" or have at most one character say nothing, and
// neither does a last line without its end.
int32_t listed_length(std::string_view text, int32_t id);

}  // namespace plov::sim

#endif
