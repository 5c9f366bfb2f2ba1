// The path table as values: its text parsed into the table area, and the walk over that area. No I/O.
#ifndef PLOV_FILES_PATH_TABLE_H
#define PLOV_FILES_PATH_TABLE_H

#include <stddef.h>

#include <span>
#include <string_view>

namespace plov::files {

// Parses the text of a table and writes its entries into `area` (layout at xdfc_file_req in xdfc.h), which it clears
// first. `base` replaces "*" in a directory. What does not fit into the area is dropped.
//
// Returns the full length of the last entry read, stored or not, 0 without entries. Reading stops behind an entry
// whose own length reaches the area's size less one.
size_t parse_path_table(std::string_view text, std::string_view base, std::span<unsigned char> area);

struct TableEntry {
  const char* pattern;
  const char* directory;
  bool create_directory;
};

// Visits the entries of an area in file order. Whatever the area holds, nothing outside it is read.
class TableWalk {
 public:
  explicit TableWalk(std::span<const unsigned char> area) : rest_(area) {}

  // The next entry; false at the end.
  bool next(TableEntry& entry);

 private:
  std::span<const unsigned char> rest_;  // from the next entry on
};

}  // namespace plov::files

#endif
