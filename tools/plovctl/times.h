// Points in time as people write them, and as the tool prints them.
#ifndef PLOV_CTL_TIMES_H
#define PLOV_CTL_TIMES_H

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace plov::ctl {

struct Stamp {
  uint32_t seconds = 0;  // since 1970-01-01 UTC
  uint8_t hundredths = 0;
  auto operator<=>(const Stamp&) const = default;
};

Stamp stamp_now();

// Understands, in local time or UTC:
//   2026-11-25   "2026-11-25 10:00"   2026-11-25T10:00:00.25   the same with Z or +01:00 behind a time
//   10:00   10:00:30.5 (today)   @1764064800.25   now   today   yesterday   -2h   -1d12h   -90s   -1w
// Nothing when the text is none of these, names a day that does not exist or leaves the years 1970 to 2106.
std::optional<Stamp> parse_time(std::string_view text, Stamp now, bool utc);

std::string table_time(Stamp stamp, bool utc);  // "2026-11-25 10:00:00.25"
std::string rfc3339(Stamp stamp, bool utc);     // "2026-11-25T10:00:00.25+01:00", or with Z

// A length of time: "90", "1.5", "30s", "2m", "1h30m"; in milliseconds.
std::optional<uint64_t> parse_duration(std::string_view text);

}  // namespace plov::ctl

#endif
