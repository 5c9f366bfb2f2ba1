// What the daemon tells the people who run it, on standard error and in the trace. Thread-safe.
#ifndef PLOV_PCED_SAY_H
#define PLOV_PCED_SAY_H

#include <string_view>

namespace plov::pced {

// A line. Words of others belong escaped.
void say(std::string_view text);

// A line that a peer can provoke as often as it likes: of more than 20 in a minute the rest is left out, and counted.
void say_sparingly(std::string_view text);

}  // namespace plov::pced

#endif
