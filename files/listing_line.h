// The listing file: a count line, then one line of fixed columns for each file.
#ifndef PLOV_FILES_LISTING_LINE_H
#define PLOV_FILES_LISTING_LINE_H

#include <stddef.h>
#include <stdint.h>
#include <sys/stat.h>

namespace plov::files {

struct ListingCount {
  char number[7];  // from the left, filled up with blanks
  char newline;
};
static_assert(sizeof(ListingCount) == 8);

struct ListingLine {
  char name[49];  // cut; nothing in it is escaped, so a reader counts columns, not line ends
  char size[10];  // from the right
  char blank1;
  char date[9];  // " mm-dd-yy"
  char blank2;
  char time[6];  // "  h:mm" on a clock of 12 hours, midnight as 0
  char half;     // "a" before noon, "p" from noon on
  char newline;
};
static_assert(sizeof(ListingLine) == 78 && offsetof(ListingLine, size) == 49 && offsetof(ListingLine, blank1) == 59);
static_assert(offsetof(ListingLine, date) == 60 && offsetof(ListingLine, blank2) == 69);
static_assert(offsetof(ListingLine, time) == 70 && offsetof(ListingLine, half) == 76);

ListingCount count_line(uint32_t count);

// Fills the whole line. `status` null: nothing is known of the file but its name.
void xdfc_fill_data_struct(ListingLine& line, const char* name, const struct stat* status);

// From a clock of 24 hours to one of 12 on which midnight is 0.
uint32_t xdfc_convert_hour(uint32_t hour);

}  // namespace plov::files

#endif
