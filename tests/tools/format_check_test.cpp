// Each rule of the file format broken once, found at its place; and any damage at all survived.
#include "format_check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string.h>

#include "expand.h"
#include "support/log_file.h"

namespace {

using plov::ctl::CheckResult;
using testing::ElementsAre;
using testing::StartsWith;

CheckResult check(const std::string& bytes) {
  return plov::ctl::check_format({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()},
                                 plov::ctl::expanded_length);
}

std::vector<std::string> complaints(const CheckResult& result) {
  std::vector<std::string> texts;
  for (const auto& finding : result.findings) texts.push_back(to_text(finding));
  return texts;
}

// Five logs: the Log Info Log at 1040, class 3 at 1104, class 4 at 1153 (deleted), class 3 at 1190 (an encoded and a
// raw block), class 4 at 1291.
struct Sample : test::LogFile {
  explicit Sample(Kind kind = kMain) : LogFile(kind) {
    first = add({.eventid = {3, 1, 7}, .blocks = {test::stored(0x10, "text"), test::stored(0x11, "")}});
    deleted = add({.eventid = {4, 1, 7}, .flags = XLOG_LOG_DELETED});
    mixed = add(
        {.eventid = {3, 2, 7}, .blocks = {test::encoded(0x10, "twenty bytes of text"), test::raw(0, "0123456789")}});
    newest = add({.eventid = {4, 9, 1}, .timestamp = {2000, 99}, .blocks = {test::stored(0xF1, "end")}});
  }
  uint32_t first, deleted, mixed, newest;
};

TEST(FormatCheck, AcceptsWhatTheRecorderWrites) {
  const CheckResult result = check(Sample().bytes());
  EXPECT_THAT(complaints(result), ElementsAre());
  EXPECT_EQ(result.logs, 5u);
  EXPECT_EQ(result.deleted_logs, 1u);
  EXPECT_EQ(result.blocks, 7u);
  EXPECT_TRUE(check(Sample(test::LogFile::kE4).bytes()).clean());
  EXPECT_TRUE(check(test::LogFile(test::LogFile::kE4).bytes()).clean()) << "no log at all";
}

TEST(FormatCheck, NotesAreNoDamage) {
  Sample copy;
  copy.header.max_file_size = 0;  // as in a compressed copy, whose limit is another one
  const CheckResult result = check(copy.bytes() + "left over");
  EXPECT_TRUE(result.clean());
  EXPECT_THAT(complaints(result), ElementsAre(StartsWith("note: offset 0, max_file_size: found 0 units"),
                                              StartsWith("note: offset " + std::to_string(copy.header.file_size) +
                                                         ", bytes beyond file_size: found 9,")));
}

TEST(FormatCheck, FindsEachBrokenRuleAtItsPlace) {
  struct Case {
    void (*damage)(Sample&);
    std::string complaint;
  };
  const Case cases[] = {
      {[](Sample& s) { s.header.file_flags |= 0x8000; },
       "offset 1038, file_flags: found 0x8120, expected no bits but 0x1130"},
      {[](Sample& s) { s.header.file_flags |= XLOG_FILE_PRUNE_IN_PROGRESS; },
       "offset 1038, file_flags: found 0x0130, expected bit 0x0010 clear"},
      {[](Sample& s) { s.header.file_size = 1039; },
       "offset 10, file_size: found 1039 (0x40F), expected at least 1040"},
      {[](Sample& s) { s.header.file_size += 1; },
       "offset 10, file_size: found 1336 (0x538), expected at most 1335 (0x537)"},
      {[](Sample& s) { s.header.last_log_offset = s.mixed; },
       "offset 6, last_log_offset: found 1190 (0x4A6), expected 1291 (0x50B)"},
      {[](Sample& s) { s.header.class_last_log[3] = s.newest; },
       "offset 26, class_last_log[0x03]: found 1291 (0x50B), expected 1190 (0x4A6)"},
      {[](Sample& s) { s.header.class_last_log[200] = s.newest; },
       "offset 814, class_last_log[0xC8]: found 1291 (0x50B), expected 0, no log"},
      {[](Sample& s) { s.info(s.mixed).prev_log_offset = s.mixed; },
       "offset 1190, prev_log_offset: found 1190 (0x4A6), expected 1153 (0x481); a link points below its own log"},
      {[](Sample& s) { s.info(s.mixed).prev_log_offset = 0; },
       "offset 1190, prev_log_offset: found 0 (0x0), expected 1153"},
      {[](Sample& s) { s.info(s.newest).prev_class_log_offset = s.mixed; },
       "offset 1291, prev_class_log_offset: found 1190 (0x4A6), expected 1153 (0x481)"},
      {[](Sample& s) { s.info(s.first).prev_class_log_offset = 1041; },
       "offset 1104, prev_class_log_offset: found 1041 (0x411), expected 0, no log"},
      {[](Sample& s) { s.info(s.first).log_flags = 0x4004; },
       "offset 1104, log_flags: found 0x4004, expected no bits but 0x3807, or 0xFFFF"},
      {[](Sample& s) { s.info(s.first).timestamp.hundredths = 100; },
       "offset 1104, timestamp.hundredths: found 100, expected at most 99"},
      {[](Sample& s) { s.info(1040).event_name[0] = 'l'; },
       "offset 1040, eventid: found class 0xFF type 0xFF, expected the Log Info Log"},
      {[](Sample& s) { s.info(s.first).num_blocks = 257; },
       "offset 1104, num_blocks: found 257 (0x101), expected at most 256; reading goes on at offset 1153"},
      {[](Sample& s) { s.info(s.first).total_log_size = 42; },
       "offset 1104, total_log_size: found 42 (0x2A), expected at least 43, its header; reading goes on at offset "
       "1153"},
      {[](Sample& s) { s.info(s.newest).total_log_size += 1; },
       "offset 1291, total_log_size: found 45 (0x2D), expected at most 44, where the data end"},
      {[](Sample& s) { s.block_info(s.first, 0).block_size = 4; },
       "offset 1104, total_log_size: found 49 (0x31), expected 48 (0x30), its header and the sum of its blocks"},
      {[](Sample& s) { s.logs[s.first - 1040 + 43] = '\x05'; },
       "offset 1104, block 1 (id 0x10, data at offset 1147): found 05 74 65 78, 5 bytes"},
      {[](Sample& s) {
         s.header.max_single_log_size = 1;
         s.add({.eventid = {5, 1, 1}, .blocks = {test::raw(0, std::string(3000, 'x'))}});
       },
       "offset 1335, total_log_size: found 3040 (0xBE0), expected at most 2048 (0x800), max_single_log_size"},
      {[](Sample& s) {
         s.add({.eventid = {5, 1, 1}, .blocks = {test::raw(0, std::string(0xFF01, 'x'))}});
       },
       "offset 1335, block 1 (id 0x00, data at offset 1375) block_size: found 65281 (0xFF01), expected at most 65280 "
       "(0xFF00)"},
  };
  for (const Case& broken : cases) {
    Sample sample;
    broken.damage(sample);
    const CheckResult result = check(sample.bytes());
    EXPECT_THAT(complaints(result), testing::Contains(StartsWith(broken.complaint)));
    EXPECT_FALSE(result.clean());
  }
}

// Fields that say nothing about the structure may hold anything; a flipped bit of every other one is noticed.
TEST(FormatCheck, NoticesEveryFlippedBitOfTheStructure) {
  const std::string good = Sample().bytes();
  const auto noticed = [&](size_t offset, int bit) {
    std::string bad = good;
    bad[offset] = static_cast<char>(bad[offset] ^ (1 << bit));
    return !check(bad).clean();
  };
  for (size_t offset = offsetof(xlog_file_header, last_log_offset); offset < offsetof(xlog_file_header, file_flags);
       ++offset)
    for (int bit = 0; bit < 8; ++bit) ASSERT_TRUE(noticed(offset, bit)) << offset << " bit " << bit;
  const Sample sample;
  for (uint32_t log : {sample.first, sample.deleted, sample.mixed, sample.newest})
    for (size_t field = 0; field < 37; ++field) {
      const bool structural = field < 5 || field >= 27;  // size, class, links, count
      for (int bit = 0; bit < 8 && structural; ++bit) ASSERT_TRUE(noticed(log + field, bit)) << log << "+" << field;
    }
  const size_t mark = sample.newest + 40;
  for (int bit = 0; bit < 8; ++bit) ASSERT_TRUE(noticed(mark, bit)) << "mark of a plain block";
  for (size_t size_byte : {38, 39, 41, 42})
    for (int bit = 0; bit < 8; ++bit) ASSERT_TRUE(noticed(sample.mixed + size_byte, bit)) << size_byte;
}

TEST(FormatCheck, ReadsOnBehindADamagedLogWithoutFurtherComplaints) {
  Sample sample;
  sample.info(sample.first).total_log_size = 0xFFFFFFFF;
  const CheckResult result = check(sample.bytes());
  EXPECT_EQ(result.damage_count, 1u);
  EXPECT_EQ(result.logs, 4u);
}

TEST(FormatCheck, SurvivesFilesCutAnywhereAndFilesOfNoise) {
  const std::string good = Sample().bytes();
  for (size_t length = 0; length < good.size(); ++length) EXPECT_FALSE(check(good.substr(0, length)).clean()) << length;
  uint32_t seed = 1;
  for (int round = 0; round < 200; ++round) {
    std::string noise = good;
    for (char& byte : noise) {
      seed = seed * 1664525 + 1013904223;
      if (seed >> 24 < static_cast<unsigned>(round)) byte = static_cast<char>(seed >> 16);
    }
    check(noise);
  }
}

}  // namespace
