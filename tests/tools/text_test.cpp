// The tool's pure pieces: times, numbers, escaping, codes, trace tags.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <fstream>
#include <regex>

#include "codes.h"
#include "escape.h"
#include "hex.h"
#include "support/files.h"
#include "times.h"
#include "trace_filter.h"

namespace {

using namespace plov::ctl;
using namespace std::string_literals;

// 2026-11-25 10:00:00.25 in Berlin, winter time.
constexpr Stamp kNow = {1795597200, 25};

class Times : public testing::Test {
 protected:
  void SetUp() override {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
  }
  static std::string read(const char* text, bool utc = false) {
    const std::optional<Stamp> stamp = parse_time(text, kNow, utc);
    return stamp ? table_time(*stamp, utc) : "none";
  }
};

TEST_F(Times, AreReadAsPeopleWriteThem) {
  const std::pair<const char*, const char*> cases[] = {
      {"now", "2026-11-25 10:00:00.25"},
      {"today", "2026-11-25 00:00:00.00"},
      {"yesterday", "2026-11-24 00:00:00.00"},
      {"2026-11-25", "2026-11-25 00:00:00.00"},
      {"2026-11-25 08:15", "2026-11-25 08:15:00.00"},
      {"2026-7-1T23:59:59.5", "2026-07-01 23:59:59.50"},
      {"2026-11-25T10:00:00.07Z", "2026-11-25 11:00:00.07"},
      {"2026-11-25 10:00+05:30", "2026-11-25 05:30:00.00"},
      {"9:05", "2026-11-25 09:05:00.00"},
      {"23:05:59.99", "2026-11-25 23:05:59.99"},
      {"@1795597200", "2026-11-25 10:00:00.00"},
      {"@1795597200.3", "2026-11-25 10:00:00.30"},
      {"2026-11-25T09:00:00.259999Z", "2026-11-25 10:00:00.25"},
      {"-2h", "2026-11-25 08:00:00.25"},
      {"-1d12h", "2026-11-23 22:00:00.25"},
      {"-32d", "2026-10-24 11:00:00.25"},  // 32 times 24 hours, across the end of summer time
      {"-1w30s", "2026-11-18 09:59:30.25"},
  };
  for (const auto& [text, meaning] : cases) EXPECT_EQ(read(text), meaning) << text;
  EXPECT_EQ(read("2026-11-25 10:00", true), "2026-11-25 10:00:00.00");
  EXPECT_EQ(read("today", true), "2026-11-25 00:00:00.00");
  for (const char* text :
       {"", "@", "@4294967296", "@1.", "2026-02-30", "2026-13-01", "24:00", "10:60", "10:00:00.", "1969-12-31",
        "2026-11-25 ", "2026-11-25X10:00", "-", "-2", "-2y", "-99999d", "10", "tomorrow"})
    EXPECT_EQ(read(text), "none") << text;
}

TEST_F(Times, AreShownWithHundredthsAndZone) {
  EXPECT_EQ(rfc3339(kNow, false), "2026-11-25T10:00:00.25+01:00");
  EXPECT_EQ(rfc3339(kNow, true), "2026-11-25T09:00:00.25Z");
  EXPECT_EQ(table_time({4294967295u, 7}, true), "2106-02-07 06:28:15.07");
  EXPECT_EQ(parse_duration("1.5"), 1500u);
  EXPECT_EQ(parse_duration("1m30s"), 90000u);
  EXPECT_EQ(parse_duration("-1s"), std::nullopt);
}

TEST(Escape, LeavesNothingThatDrivesATerminal) {
  EXPECT_EQ(escape("plain äöü 日本"), "plain äöü 日本");
  EXPECT_EQ(escape("a\x1b[31mb\n\t\r\\\0"s), "a\\x1B[31mb\\n\\t\\r\\\\\\x00");
  EXPECT_EQ(escape("\x7f\xc2\x9b\xe2\x80\xae\xef\xbb\xbf"), "\\x7F\\xC2\\x9B\\xE2\\x80\\xAE\\xEF\\xBB\\xBF");
  EXPECT_EQ(escape("\xc0\xaf\xed\xa0\x80\xf5\xff\xc3"), "\\xC0\\xAF\\xED\\xA0\\x80\\xF5\\xFF\\xC3") << "no UTF-8";
  for (int first = 0; first < 256; ++first)
    for (int second = 0; second < 256; ++second) {
      const std::string text = escape(std::string{static_cast<char>(first), static_cast<char>(second)});
      ASSERT_TRUE(is_utf8(text));
      for (unsigned char c : text) ASSERT_TRUE(c >= 0x20 && c != 0x7F);
    }
}

TEST(Numbers, AreReadWholeOrNotAtAll) {
  EXPECT_EQ(parse_number("0xE4", 0xFF), 0xE4u);
  EXPECT_EQ(parse_number("228", 0xFF), 0xE4u);
  EXPECT_EQ(parse_number("4294967295", UINT32_MAX), UINT32_MAX);
  for (const char* text : {"", "256", "0x", "0x100", "-1", "+1", " 1", "1 ", "E4", "99999999999"})
    EXPECT_EQ(parse_number(text, 0xFF), std::nullopt) << text;
  EXPECT_THAT(*parse_hex_bytes("0xff00 1B:5b"), testing::ElementsAre(0xFF, 0, 0x1B, 0x5B));
  for (const char* text : {"f", "f f", "0g", "ff0"}) EXPECT_EQ(parse_hex_bytes(text), std::nullopt) << text;
  const uint8_t bytes[] = {'M', 0xFF, 0, 'x'};
  EXPECT_EQ(base64({bytes, 4}) + base64({bytes, 3}) + base64({bytes, 2}), "Tf8AeA==Tf8ATf8=");
  EXPECT_EQ(hexdump({bytes, 4}, "> "), "> 0000  4d ff 00 78" + std::string(39, ' ') + "M..x\n");
}

// A code that a header names and nobody explains is what service staff meets at night.
TEST(Codes, OfAllPublicHeadersAreExplainedHereAndInTheManual) {
  const std::string manual = test::read_file(PLOV_SOURCE_DIR "/man/plovsp1.7.scd");
  const std::regex constant(
      "#define ("
      "(XLOG_(RECORD|SYSEVENT|E4_SYSEVENT|EVENT_DATA|PURGE|TRIM|MICROCODE_BAD|UPDATE|MARK|SNAPSHOT|RETRIEVE|FREE|"
      "ENCODE|DECODE|ERR)"
      "|XP11|XDFC|XPCE_PROBE|XACT|XMIS|XSIM|XBT|XNB)_\\w+) (0xA00\\d|0x\\w+u|\\d+u)");
  const std::regex other(
      "XLOG_(RECORD_BLOCK_SIZE|TRIM_SIZE)|XDFC_(E_\\w+|DE_\\w+|ACTION_\\w+|PATH_SIZE|TABLE_SIZE)"
      "|XBT_(REBOOT_\\d|HALT|POWER_OFF|NAME_LIMIT)|XNB_OK|XLOG_DECODE_BAD_ARGUMENT");
  int count = 0;
  for (const char* header :
       {"xlog.h", "xdfc.h", "xpce.h", "xact.h", "xmis.h", "xsim.h", "xbt.h", "../platform/xnb.h"}) {
    const std::string text = test::read_file(std::string(PLOV_SOURCE_DIR "/include/") + header);
    for (std::sregex_iterator match(text.begin(), text.end(), constant), end; match != end; ++match) {
      const std::string name = (*match)[1];
      if (std::regex_match(name, other)) continue;
      const Code* code = find_code_by_name(name);
      ASSERT_TRUE(code) << name;
      EXPECT_EQ(code->value, strtoul((*match)[4].str().c_str(), nullptr, 0)) << name;
      ++count;
    }
  }
  EXPECT_GT(count, 80);
  for (const Code& code : all_codes()) {
    if (code.family == Family::sysrc) continue;
    EXPECT_NE(manual.find("*" + notation(code.family, code.value) + "*"), std::string::npos) << code.name;
    EXPECT_NE(manual.find(code.meaning), std::string::npos) << code.meaning;
  }
}

TEST(Codes, AreNamedInTheFamilysNotation) {
  EXPECT_EQ(explain_result(Family::xlog, 2, 0x1801),
            "sysrc 2 (a bad argument or a refused request), comprc 0x1801 (the event is larger than one log may be)");
  EXPECT_EQ(explain_result(Family::xdfc, 2, 13),
            "sysrc 2 (a bad argument or a refused request), comprc 13 (Permission denied)");
}

TEST(Trace, LinesAreTakenApart) {
  const TraceTag tag = find_tag("2026-11-25 10:00:00.431827Z 201/202 XLOG   F: log_file = [a: b]");
  EXPECT_EQ(tag.name, "XLOG");
  EXPECT_EQ(tag.level, 'F');
  EXPECT_EQ(find_tag("x XPCE___T: -> xpce_setup:").name, "XPCE");
  EXPECT_EQ(find_tag("XDFCQFLD: Create directory").name, "XDFCQFL");
  EXPECT_EQ(find_tag("no tag here: at all").name, "");
  EXPECT_TRUE((TraceFilter{"xlog", "F", "log_file"}.matches("1 XLOG   F: log_file")));
  EXPECT_FALSE((TraceFilter{"", "TD", ""}.matches("1 XLOG   F: log_file")));
  EXPECT_EQ(after_line(split_lines("a\nb\nc\n"), "b"), 2u);
  EXPECT_EQ(after_line(split_lines("a\nb\nc\n"), "z"), 0u);
}

}  // namespace
