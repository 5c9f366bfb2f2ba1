// Text of unknown origin made fit for a terminal and for JSON.
#ifndef PLOV_CTL_ESCAPE_H
#define PLOV_CTL_ESCAPE_H

#include <string>
#include <string_view>

namespace plov::ctl {

// Printable UTF-8 as it stands; everything else (control characters, C1 and direction controls, invisible characters,
// bytes that are no UTF-8) as \n, \t, \\, \xNN. The result drives no terminal and can be read back.
std::string escape(std::string_view bytes);

// A fixed-width field without the NULs and blanks that fill it up.
std::string_view trim_field(const char* field, size_t size);

bool is_utf8(std::string_view bytes);

}  // namespace plov::ctl

#endif
