#include "times.h"

#include <cstdio>
#include <ctime>

namespace plov::ctl {
namespace {

// Takes what it recognises from the front of a text.
class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text) {}

  bool at_end() const { return text_.empty(); }
  bool take(char c) {
    if (text_.empty() || text_[0] != c) return false;
    text_.remove_prefix(1);
    return true;
  }
  bool take_any(const char* characters, char& taken) {
    if (text_.empty() || std::string_view(characters).find(text_[0]) == std::string_view::npos) return false;
    taken = text_[0];
    text_.remove_prefix(1);
    return true;
  }
  // `least` to `most` digits.
  bool number(size_t least, size_t most, uint64_t& value) {
    size_t length = 0;
    value = 0;
    while (length < text_.size() && length < most && text_[length] >= '0' && text_[length] <= '9')
      value = value * 10 + static_cast<uint64_t>(text_[length++] - '0');
    if (length < least || (length < text_.size() && text_[length] >= '0' && text_[length] <= '9')) return false;
    text_.remove_prefix(length);
    return true;
  }
  // The digits behind a point: hundredths, rounded down.
  bool hundredths(uint8_t& value) {
    const std::string_view digits = text_.substr(0, text_.find_first_not_of("0123456789"));
    if (digits.empty()) return false;
    value = static_cast<uint8_t>((digits[0] - '0') * 10 + (digits.size() > 1 ? digits[1] - '0' : 0));
    text_.remove_prefix(digits.size());
    return true;
  }

 private:
  std::string_view text_;
};

constexpr int64_t kDay = 86400;

std::optional<Stamp> in_range(int64_t seconds, uint8_t hundredths) {
  if (seconds < 0 || seconds > UINT32_MAX) return std::nullopt;
  return Stamp{static_cast<uint32_t>(seconds), hundredths};
}

tm broken_down(int64_t seconds, bool utc) {
  const time_t time = static_cast<time_t>(seconds);
  tm fields{};
  if (utc)
    gmtime_r(&time, &fields);
  else
    localtime_r(&time, &fields);
  return fields;
}

int64_t seconds_of(tm fields, bool utc) {
  fields.tm_isdst = -1;
  return utc ? timegm(&fields) : mktime(&fields);
}

// Midnight of the day `back` days before `now`.
std::optional<Stamp> midnight(Stamp now, int back, bool utc) {
  tm fields = broken_down(now.seconds, utc);
  fields.tm_mday -= back;
  fields.tm_hour = fields.tm_min = fields.tm_sec = 0;
  return in_range(seconds_of(fields, utc), 0);
}

bool clock_time(Reader& reader, tm& fields, uint8_t& hundredths) {
  uint64_t hour = 0, minute = 0, second = 0;
  if (!reader.number(1, 2, hour) || !reader.take(':') || !reader.number(2, 2, minute)) return false;
  if (reader.take(':')) {
    if (!reader.number(2, 2, second)) return false;
    if (reader.take('.') && !reader.hundredths(hundredths)) return false;
  }
  if (hour > 23 || minute > 59 || second > 59) return false;
  fields.tm_hour = static_cast<int>(hour);
  fields.tm_min = static_cast<int>(minute);
  fields.tm_sec = static_cast<int>(second);
  return true;
}

bool date(Reader& reader, tm& fields) {
  uint64_t year = 0, month = 0, day = 0;
  if (!reader.number(4, 4, year) || !reader.take('-') || !reader.number(1, 2, month) || !reader.take('-') ||
      !reader.number(1, 2, day))
    return false;
  fields = {};
  fields.tm_year = static_cast<int>(year) - 1900;
  fields.tm_mon = static_cast<int>(month) - 1;
  fields.tm_mday = static_cast<int>(day);
  // The calendar turns February 30 into March 2; whoever wrote it meant something else.
  tm same = fields;
  timegm(&same);
  return same.tm_mon == fields.tm_mon && same.tm_mday == fields.tm_mday;
}

// "Z" or "+01:00" at the end: seconds east of UTC.
bool zone(Reader& reader, int64_t& east) {
  char sign = 0;
  if (!reader.take_any("Zz+-", sign)) return false;
  if (sign == 'Z' || sign == 'z') return reader.at_end();
  uint64_t hours = 0, minutes = 0;
  if (!reader.number(2, 2, hours)) return false;
  reader.take(':');
  if (!reader.number(2, 2, minutes) || hours > 23 || minutes > 59 || !reader.at_end()) return false;
  east = static_cast<int64_t>(hours * 3600 + minutes * 60) * (sign == '-' ? -1 : 1);
  return true;
}

// "1d12h": a number and a unit, as often as wanted.
std::optional<int64_t> unit_sum(Reader reader) {
  int64_t sum = 0;
  if (reader.at_end()) return std::nullopt;
  while (!reader.at_end()) {
    uint64_t count = 0;
    char unit = 0;
    if (!reader.number(1, 9, count) || !reader.take_any("smhdw", unit)) return std::nullopt;
    const int64_t seconds = unit == 's' ? 1 : unit == 'm' ? 60 : unit == 'h' ? 3600 : unit == 'd' ? kDay : 7 * kDay;
    sum += static_cast<int64_t>(count) * seconds;
  }
  return sum;
}

std::optional<Stamp> calendar(std::string_view text, Stamp now, bool utc) {
  tm fields = broken_down(now.seconds, utc);
  uint8_t hundredths = 0;
  if (Reader reader(text); clock_time(reader, fields, hundredths) && reader.at_end())
    return in_range(seconds_of(fields, utc), hundredths);
  Reader reader(text);
  if (!date(reader, fields)) return std::nullopt;
  if (reader.at_end()) return in_range(seconds_of(fields, utc), 0);
  char separator = 0;
  hundredths = 0;
  if (!reader.take_any(" Tt", separator) || !clock_time(reader, fields, hundredths)) return std::nullopt;
  if (reader.at_end()) return in_range(seconds_of(fields, utc), hundredths);
  int64_t east = 0;
  if (!zone(reader, east)) return std::nullopt;
  return in_range(timegm(&fields) - east, hundredths);
}

}  // namespace

Stamp stamp_now() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return {static_cast<uint32_t>(now.tv_sec), static_cast<uint8_t>(now.tv_nsec / 10000000)};
}

std::optional<Stamp> parse_time(std::string_view text, Stamp now, bool utc) {
  if (text == "now") return now;
  if (text == "today") return midnight(now, 0, utc);
  if (text == "yesterday") return midnight(now, 1, utc);
  Reader reader(text);
  if (reader.take('@')) {
    uint64_t seconds = 0;
    uint8_t hundredths = 0;
    if (!reader.number(1, 10, seconds) || (reader.take('.') && !reader.hundredths(hundredths)) || !reader.at_end())
      return std::nullopt;
    return in_range(static_cast<int64_t>(seconds), hundredths);
  }
  if (reader.take('-')) {
    const std::optional<int64_t> back = unit_sum(reader);
    if (!back) return std::nullopt;
    return in_range(now.seconds - *back, now.hundredths);
  }
  return calendar(text, now, utc);
}

std::string table_time(Stamp stamp, bool utc) {
  const tm fields = broken_down(stamp.seconds, utc);
  char text[64], tail[8];
  strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &fields);
  snprintf(tail, sizeof tail, ".%02u", stamp.hundredths);
  return std::string(text) + tail;
}

std::string rfc3339(Stamp stamp, bool utc) {
  std::string text = table_time(stamp, utc);
  text[10] = 'T';
  if (utc) return text + "Z";
  const long east = broken_down(stamp.seconds, false).tm_gmtoff / 60;
  const unsigned minutes = static_cast<unsigned>(east < 0 ? -east : east);
  char zone_text[32];
  snprintf(zone_text, sizeof zone_text, "%c%02u:%02u", east < 0 ? '-' : '+', minutes / 60, minutes % 60);
  return text + zone_text;
}

std::optional<uint64_t> parse_duration(std::string_view text) {
  Reader reader(text);
  uint64_t seconds = 0;
  uint8_t hundredths = 0;
  if (reader.number(1, 9, seconds) && (!reader.take('.') || reader.hundredths(hundredths)) && reader.at_end())
    return seconds * 1000 + hundredths * 10u;
  const std::optional<int64_t> sum = unit_sum(Reader(text));
  if (!sum) return std::nullopt;
  return static_cast<uint64_t>(*sum) * 1000;
}

}  // namespace plov::ctl
