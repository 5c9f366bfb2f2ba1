#include "files/listing_line.h"

#include <stdio.h>
#include <string.h>
#include <time.h>

#include "files/decimal.h"

namespace plov::files {

ListingCount count_line(uint32_t count) {
  ListingCount line;
  char text[sizeof line.number + 4];  // what passes the columns of a number is cut
  snprintf(text, sizeof text, "%-7u", count);
  memcpy(line.number, text, sizeof line.number);
  line.newline = '\n';
  return line;
}

uint32_t xdfc_convert_hour(uint32_t hour) {
  return hour > 12 ? hour - 12 : hour;
}

void xdfc_fill_data_struct(ListingLine& line, const char* name, const struct stat* status) {
  memset(&line, ' ', sizeof line);
  memcpy(line.name, name, strnlen(name, sizeof line.name));
  line.newline = '\n';
  if (!status) return;
  putldn(line.size, static_cast<uint64_t>(status->st_size), sizeof line.size);
  struct tm changed;
  if (!localtime_r(&status->st_ctime, &changed)) return;
  memcpy(line.date, " 0m-0d-00", sizeof line.date);
  putldn(line.date + 1, static_cast<uint32_t>(changed.tm_mon + 1), 2);
  putldn(line.date + 4, static_cast<uint32_t>(changed.tm_mday), 2);
  putldn(line.date + 7, static_cast<uint32_t>(changed.tm_year + 1900), 2);
  memcpy(line.time, "  h:0m", sizeof line.time);
  putldn(line.time + 1, xdfc_convert_hour(static_cast<uint32_t>(changed.tm_hour)), 2);
  putldn(line.time + 4, static_cast<uint32_t>(changed.tm_min), 2);
  line.half = changed.tm_hour < 12 ? 'a' : 'p';
}

}  // namespace plov::files
