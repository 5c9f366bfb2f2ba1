#include "platform/host/trace_text.h"

#include <string.h>

#include <algorithm>

namespace plov::host {
namespace {

char* put_decimal(char* at, uint32_t value, unsigned digits) {
  for (unsigned i = digits; i > 0; --i, value /= 10) at[i - 1] = static_cast<char>('0' + value % 10);
  return at + digits;
}

char* put_id(char* at, uint32_t value) {
  unsigned digits = 1;
  for (uint32_t rest = value; rest >= 10; rest /= 10) ++digits;
  return put_decimal(at, value, digits);
}

struct Date {
  uint32_t year, month, day;
};

// Days since 1970-01-01 to the proleptic Gregorian date, counting years from March so that the leap day comes last.
Date date_of(uint32_t days) {
  const uint32_t shifted = days + 719468;
  const uint32_t era = shifted / 146097, day_of_era = shifted % 146097;
  const uint32_t year_of_era = (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
  const uint32_t day_of_year = day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
  const uint32_t month = (5 * day_of_year + 2) / 153;
  return {era * 400 + year_of_era + (month >= 10), month < 10 ? month + 3 : month - 9,
          day_of_year - (153 * month + 2) / 5 + 1};
}

}  // namespace

size_t show_line(const Line& line, char* out) {
  const Date date = date_of(line.seconds / 86400);
  const uint32_t second = line.seconds % 86400;
  char* at = put_decimal(out, date.year, 4);
  *at++ = '-';
  at = put_decimal(at, date.month, 2);
  *at++ = '-';
  at = put_decimal(at, date.day, 2);
  *at++ = ' ';
  at = put_decimal(at, second / 3600, 2);
  *at++ = ':';
  at = put_decimal(at, second / 60 % 60, 2);
  *at++ = ':';
  at = put_decimal(at, second % 60, 2);
  *at++ = '.';
  at = put_decimal(at, line.nanoseconds / 1000, 6);
  *at++ = 'Z';
  *at++ = ' ';
  at = put_id(at, line.pid);
  *at++ = '/';
  at = put_id(at, line.tid);
  *at++ = ' ';
  const size_t length = std::min<size_t>(line.length, kTextSize);
  for (size_t i = 0; i < length; ++i) {
    const unsigned char byte = static_cast<unsigned char>(line.text[i]);
    *at++ = byte < 0x20 || byte == 0x7F ? '.' : line.text[i];
  }
  *at++ = '\n';
  return static_cast<size_t>(at - out);
}

}  // namespace plov::host
