// One line of a long listing, as a remote system's directory command would answer it.
#ifndef PLOV_FILES_LONG_LINE_H
#define PLOV_FILES_LONG_LINE_H

#include <stddef.h>
#include <sys/stat.h>

namespace plov::files {

// Name, arrow and target of a link together, with the NUL; a longer pair is shown without its target.
inline constexpr size_t kLongNameSize = 4096;

inline constexpr size_t kLongLineSize = kLongNameSize + 256;

// Writes type, permissions, links, owner, group, size, date and name, ended by a newline, no NUL, and returns the
// length. `target` null: no link, or one that cannot be read. A date of `this_year` (full year) shows the time of day,
// any other its year.
size_t format_long_line(char (&line)[kLongLineSize], const struct stat& status, const char* name, const char* target,
                        int this_year);

}  // namespace plov::files

#endif
