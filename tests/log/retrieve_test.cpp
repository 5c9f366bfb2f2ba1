// Retrieval as its callers see it: which logs, which blocks, which bytes.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>

#include "support/files.h"
#include "support/log_file.h"
#include "support/retrieval.h"

namespace {

using test::encoded, test::raw, test::stored, test::users, test::Retrieval;
using testing::ElementsAre, testing::IsEmpty;

const std::string kLargest(XLOG_MAX_BLOCK_SIZE, 'L');

void save(const test::LogFile& file) {
  std::filesystem::create_directories(test::data_path(""));
  test::write_file(test::data_path("wexolog.log"), file.bytes());
}

// Logs with users 1 to 6, a second apart: classes 1 2 1 2 1 1, types 1 1 1 2 2 1.
class ThreeKinds : public testing::Test {
 protected:
  ThreeKinds() {
    const uint8_t classes[] = {1, 2, 1, 2, 1, 1}, types[] = {1, 1, 1, 2, 2, 1};
    for (unsigned i = 0; i < 6; ++i)
      at[i + 1] =
          file.add({.eventid = {classes[i], types[i], static_cast<uint16_t>(i + 1)}, .timestamp = {1000 + i, 50}});
    save(file);
  }

  test::LogFile file;
  uint32_t at[7];
};

TEST_F(ThreeKinds, AreSelectedByEventId) {
  EXPECT_THAT(users(XLOG_OPT_ALL_CLASSES, {}), ElementsAre("6", "5", "4", "3", "2", "1", "0"));
  EXPECT_THAT(users(XLOG_OPT_ALL_CLASSES | XLOG_OPT_TYPE_ONLY, {1, 9, 9}), testing::SizeIs(7));
  EXPECT_THAT(users(XLOG_OPT_ANY_EVENTID, {1, 9, 9}), ElementsAre("6", "5", "3", "1"));
  EXPECT_THAT(users(XLOG_OPT_TYPE_ONLY, {1, 1, 9}), ElementsAre("6", "3", "1"));
  EXPECT_THAT(users(0, {1, 1, 3}), ElementsAre("3"));
  EXPECT_THAT(users(0, {1, 2, 3}), IsEmpty());
  EXPECT_THAT(users(XLOG_OPT_ALL_CLASSES, {}, {}, {}, 2), ElementsAre("6", "5"));
  EXPECT_THAT(users(XLOG_OPT_ANY_EVENTID, {2, 0, 0}, {}, {}, 1), ElementsAre("4"));
}

TEST_F(ThreeKinds, AreSelectedByTime) {
  const auto all = XLOG_OPT_ALL_CLASSES;
  EXPECT_THAT(users(all, {}, {1003, 50}, {}), ElementsAre("6", "5", "4"));
  EXPECT_THAT(users(all, {}, {1003, 51}, {}), ElementsAre("6", "5"));
  EXPECT_THAT(users(all, {}, {1002, 0}, {1003, 50}), ElementsAre("4", "3"));
  EXPECT_THAT(users(all, {}, {}, {1001, 49}), ElementsAre("1", "0"));
  EXPECT_THAT(users(all | XLOG_OPT_EXACT_TIME, {}, {1003, 50}), ElementsAre("4"));
  EXPECT_THAT(users(all | XLOG_OPT_EXACT_TIME, {}, {1003, 0}), IsEmpty());
}

// A clock set back leaves an old stamp among newer ones: the walk ends there, unless the time is to be exact.
TEST_F(ThreeKinds, TheWalkEndsAtTheFirstOlderStamp) {
  file.info(at[5]).timestamp = {10, 0};
  save(file);
  EXPECT_THAT(users(XLOG_OPT_ALL_CLASSES, {}, {1002, 0}), ElementsAre("6"));
  EXPECT_THAT(users(XLOG_OPT_ALL_CLASSES | XLOG_OPT_EXACT_TIME, {}, {1003, 50}), ElementsAre("4"));
}

TEST_F(ThreeKinds, DeletedLogsArePassedOver) {
  for (unsigned i : {3, 6}) file.info(at[i]).log_flags = XLOG_LOG_DELETED;
  save(file);
  EXPECT_THAT(users(XLOG_OPT_ANY_EVENTID, {1, 0, 0}), ElementsAre("5", "1"));
  EXPECT_THAT(users(0, {1, 1, 3}), IsEmpty());
}

TEST_F(ThreeKinds, AClassWithoutLogsIsAFailureAnEmptyFileIsNot) {
  EXPECT_THAT(users(0, {7, 0, 0}), ElementsAre("2/0x2201"));
  file.header.class_last_log[7] = file.header.file_size;
  save(file);
  EXPECT_THAT(users(0, {7, 0, 0}), ElementsAre("2/0x2201"));
  EXPECT_EQ(test::read_file(test::data_path("wexolog.log")), file.bytes());
  save(test::LogFile(test::LogFile::kE4));
  EXPECT_THAT(users(XLOG_OPT_ALL_CLASSES, {}), IsEmpty());
}

TEST(MatchTime, CarriesHundredthsAndComparesToTheHundredth) {
  struct Case {
    xlog_timestamp start, end, log;
    int32_t plain, exact;
  };
  const Case cases[] = {
      {{0, 0}, {0, 0}, {0, 0}, 1, 1},          {{5, 10}, {5, 10}, {5, 10}, 1, 1},  {{5, 11}, {0, 0}, {5, 10}, 0, 0},
      {{6, 0}, {0, 0}, {5, 99}, 0, 0},         {{0, 99}, {0, 0}, {5, 10}, 1, 0},   {{0, 0}, {5, 9}, {5, 10}, 0, 0},
      {{0, 0}, {6, 0}, {5, 99}, 1, 0},         {{7, 55}, {7, 55}, {5, 255}, 1, 1}, {{6, 0}, {6, 0}, {5, 100}, 1, 1},
      {{5, 0}, {5, 0}, {0xFFFFFFFF, 0}, 0, 0},
  };
  for (const Case& one : cases) {
    xlog_timestamp log = one.log;
    EXPECT_EQ(xlog_match_time(0, &one.start, &one.end, &log), one.plain) << one.log.seconds;
    EXPECT_LT(log.hundredths, 100);
    log = one.log;
    EXPECT_EQ(xlog_match_time(XLOG_OPT_EXACT_TIME, &one.start, &one.end, &log), one.exact) << one.log.seconds;
    EXPECT_EQ(log.seconds * 100 + log.hundredths, one.log.seconds * 100 + one.log.hundredths);
  }
}

TEST(Retrieve, HandsOutTheHeaderFieldsAndTheExpandedBlocks) {
  test::LogFile file(test::LogFile::kE4);
  file.add({.eventid = {9, 8, 7},
            .timestamp = {99, 250},
            .name = "twelve chars and more",
            .flags = 0xFFFB & ~XLOG_LOG_ENCODED_HINT,
            .blocks = {raw(5, "\xFFraw"), raw(0, "zero")}});
  file.add({.eventid = {9, 8, 6},
            .blocks = {stored(1, "one"), encoded(2, "two"), raw(0, "\xFF\x05"), raw(3, ""), stored(4, ""),
                       stored(1, std::string(300, 'm'))}});
  save(file);
  Retrieval retrieval(XLOG_OPT_ANY_EVENTID, {9, 0, 0});
  ASSERT_EQ(retrieval.run(), 0);
  EXPECT_EQ(retrieval.comprc, 0u);
  EXPECT_EQ(retrieval.count, 2u);
  EXPECT_THAT(retrieval.logs(), ElementsAre("6:1=one,2=two,0=\xFF\x05,3=,4=,1=" + std::string(300, 'm'),
                                            std::string("7:5=\xFFraw,0=zero")));
  const xlog_log_entry& oldest = *retrieval.result->next;
  EXPECT_EQ(oldest.flags, XLOG_LOG_PROBLEM_ANALYSIS | XLOG_LOG_DISPLAY_AS_ERROR);
  EXPECT_EQ(memcmp(oldest.event_name, "twelve chars", 12), 0);
  EXPECT_EQ(oldest.eventid.classes, 9);
  EXPECT_EQ(oldest.eventid.log_type, 8);
  EXPECT_EQ(oldest.timestamp.seconds, 101u);
  EXPECT_EQ(oldest.timestamp.hundredths, 50);
  EXPECT_EQ(retrieval.result->blocks->next->next->next->data, nullptr);
  EXPECT_EQ(retrieval.free(), 0);
  EXPECT_EQ(retrieval.free_comprc, 0u);
  EXPECT_EQ(retrieval.result, nullptr);
}

TEST(Retrieve, ALogWithTheHintAloneTakesItsBytesFromTheLastExpansion) {
  test::LogFile file(test::LogFile::kE4);
  file.add({.eventid = {1, 1, 1}, .flags = XLOG_LOG_ENCODED_HINT, .blocks = {raw(5, "12345"), raw(0, "zero")}});
  file.add({.eventid = {1, 1, 2}, .blocks = {stored(5, "abc")}});
  file.add({.eventid = {1, 1, 3}, .flags = XLOG_LOG_ENCODED_HINT, .blocks = {raw(5, "12")}});
  save(file);
  Retrieval retrieval;
  ASSERT_EQ(retrieval.run(), 0);
  EXPECT_THAT(retrieval.logs(),
              ElementsAre(std::string("3:5=\0\0", 6), "2:5=abc", std::string("1:5=abc\0\0,0=zero", 16)));
}

TEST(Retrieve, OversizedBlocksAreCutAndTheNextOneIsStillFound) {
  test::LogFile file;
  file.add({.eventid = {1, 1, 1}, .flags = 0, .blocks = {raw(1, kLargest + "tail"), raw(2, "next")}});
  file.add({.eventid = {1, 1, 2}, .blocks = {stored(1, kLargest), stored(2, "next")}});
  file.add({.eventid = {1, 1, 3}, .blocks = {raw(1, encoded(1, std::string(43000, 'e')).bytes), stored(2, "next")}});
  save(file);
  Retrieval retrieval(XLOG_OPT_ANY_EVENTID, {1, 0, 0});
  ASSERT_EQ(retrieval.run(), 0);
  EXPECT_THAT(retrieval.logs(), ElementsAre("3:1=" + std::string(43000, 'e') + ",2=next",
                                            "2:1=" + kLargest.substr(1) + ",2=next", "1:1=" + kLargest + ",2=next"));
}

TEST(Retrieve, BlocksThatWouldPassTheNextLogAreLeftOut) {
  test::LogFile file;
  const uint32_t first = file.add({.eventid = {1, 1, 1}, .blocks = {stored(1, "a"), stored(2, "b"), stored(3, "c")}});
  const uint32_t second = file.add({.eventid = {1, 1, 2}, .blocks = {stored(1, "a"), stored(2, "b")}});
  for (uint32_t log : {first, second}) file.block_info(log, 1).block_size = 0xFFFF;
  save(file);
  Retrieval retrieval(XLOG_OPT_ANY_EVENTID, {1, 0, 0});
  EXPECT_EQ(retrieval.run(), 0);
  EXPECT_THAT(retrieval.logs(), ElementsAre("2:1=a", "1:1=a"));
}

TEST(Retrieve, LargeAndSmallLogsAlternateAndAllAreRead) {
  test::LogFile file(test::LogFile::kE4);
  std::vector<std::string> expected;
  for (unsigned i = 0; i < 300; ++i) {
    const std::string data(i % 7 == 0 ? 1 + i * 131 : i % 5 * 40, static_cast<char>('a' + i % 26));
    file.add({.eventid = {static_cast<uint8_t>(i % 2), 1, static_cast<uint16_t>(i)},
              .blocks = {stored(7, data), encoded(8, data.substr(0, 99)), raw(0, data)}});
    expected.insert(expected.begin(), std::to_string(i) + ":7=" + data + ",8=" + data.substr(0, 99) + ",0=" + data);
  }
  save(file);
  Retrieval all;
  EXPECT_EQ(all.run(), 0);
  EXPECT_EQ(all.logs(), expected);
  Retrieval odd(XLOG_OPT_ANY_EVENTID, {1, 0, 0});
  EXPECT_EQ(odd.run(), 0);
  std::erase_if(expected, [](const std::string& log) { return std::stoi(log) % 2 == 0; });
  EXPECT_EQ(odd.logs(), expected);
}

TEST(Retrieve, ABlockIdListKeepsItsBlocksInReverseOrder) {
  test::LogFile file(test::LogFile::kE4);
  file.add({.eventid = {1, 1, 1}, .blocks = {stored(1, "a"), stored(2, "b"), stored(3, "c"), stored(1, "d")}});
  file.add({.eventid = {1, 1, 2}, .blocks = {stored(9, "a")}});
  save(file);
  Retrieval retrieval;
  const uint8_t wanted[] = {1, 3};
  retrieval.id_list = wanted;
  retrieval.id_count = sizeof wanted;
  ASSERT_EQ(retrieval.run(), 0);
  EXPECT_THAT(retrieval.logs(), ElementsAre("2", "1:1=d,3=c,1=a"));
}

TEST(Retrieve, EveryPatternMustBeSatisfiedBySomeBlock) {
  test::LogFile file(test::LogFile::kE4);
  file.add({.eventid = {1, 1, 1}, .blocks = {stored(5, "xyz"), stored(5, "abc"), stored(6, "")}});
  file.add({.eventid = {1, 1, 2}, .blocks = {stored(5, "abd"), stored(6, "q")}});
  file.add({.eventid = {1, 1, 3}, .blocks = {}});
  file.add({.eventid = {1, 1, 4}, .flags = 0, .blocks = {raw(5, "ab"), raw(6, kLargest)}});
  save(file);
  const std::string ones(70000, '\xFF'), nothing(1, '\0');
  const auto bytes = [](const std::string& text) { return reinterpret_cast<const uint8_t*>(text.data()); };
  const auto matching = [&](uint8_t id, const std::string& data, const std::string& mask,
                            xlog_pattern* next = nullptr) {
    xlog_pattern pattern = {static_cast<uint32_t>(data.size()), id, bytes(data), bytes(mask), next};
    const uint8_t kept_id = 77;  // patterns look at the blocks before a list removes them
    Retrieval retrieval;
    retrieval.patterns = &pattern;
    retrieval.id_list = &kept_id;
    retrieval.id_count = 1;
    EXPECT_EQ(retrieval.run(), 0);
    return retrieval.logs();
  };
  EXPECT_THAT(matching(5, "abc", ones), ElementsAre("1"));
  EXPECT_THAT(matching(5, "ab?", std::string("\xFF\xFF\0", 3)), ElementsAre("2", "1"));
  EXPECT_THAT(matching(5, "cbd", "\xFD\xFF\xFF"), ElementsAre("2"));
  EXPECT_THAT(matching(6, "", ""), ElementsAre("4", "2"));
  EXPECT_THAT(matching(6, kLargest + "longer", ones), ElementsAre("4"));
  xlog_pattern second = {1, 6, bytes(ones), bytes(nothing), nullptr};
  EXPECT_THAT(matching(5, "ab", ones, &second), ElementsAre("4", "2"));
}

TEST(Retrieve, OtherFilesAreReadByTheirNames) {
  test::LogFile file(test::LogFile::kE4);
  file.add({.eventid = {1, 1, 42}});
  const std::string explicit_path = test::console_path() + "any.file";
  test::write_file(explicit_path, file.bytes());
  Retrieval by_path(XLOG_OPT_ALL_CLASSES, {}, ("!" + explicit_path).c_str());
  EXPECT_EQ(by_path.run(), 0);
  EXPECT_THAT(by_path.logs(), ElementsAre("42"));
  Retrieval too_long(XLOG_OPT_ALL_CLASSES, {}, "short");
  EXPECT_EQ(too_long.run(), 2);
  EXPECT_EQ(too_long.comprc, XLOG_ERR_NAME_TOO_LONG);
  Retrieval nowhere(XLOG_OPT_ALL_CLASSES, {}, "!/no/such/directory/x.log");
  EXPECT_EQ(nowhere.run(), 8);
  EXPECT_EQ(nowhere.comprc, XLOG_ERR_OPEN);
  Retrieval created(XLOG_OPT_ALL_CLASSES, {}, "new");
  EXPECT_EQ(created.run(), 0);
  EXPECT_THAT(created.logs(), ElementsAre(testing::StartsWith("0:245=")));
}

// Offsets have 32 bits and the end of a block lies beyond them.
TEST(Retrieve, LogsJustBelowFourGigabytesAreRead) {
  test::LogFile file(test::LogFile::kE4);
  const uint32_t base = 0xFFFFFF00u;
  file.add({.eventid = {1, 1, 1}, .blocks = {stored(1, "a"), stored(2, "b")}});
  file.block_info(XLOG_FILE_HEADER_SIZE, 1).block_size = 0xFFFF;
  file.header.last_log_offset = file.header.class_last_log[1] = base;
  file.header.file_size = 0xFFFFFFFFu;
  const std::string path = test::console_path() + "sparse", head = file.bytes().substr(0, XLOG_FILE_HEADER_SIZE);
  test::write_file(path, head);
  const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
  ASSERT_EQ(pwrite(fd, file.logs.data(), file.logs.size(), base), static_cast<ssize_t>(file.logs.size()));
  close(fd);
  Retrieval retrieval(XLOG_OPT_ALL_CLASSES, {}, ("!" + path).c_str());
  EXPECT_EQ(retrieval.run(), 0);
  EXPECT_THAT(retrieval.logs(), ElementsAre("1:1=a"));
}

}  // namespace
