// What a record leaves in the file, and every way in which it is refused.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdarg.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <map>

#include "plovmemdebug.h"
#include "support/codes.h"
#include "support/doubles.h"
#include "support/files.h"
#include "support/log_calls.h"
#include "support/pages.h"
#include "xlog.h"
#include "xtr.h"

using namespace test;

namespace {

// Failures to order: the n-th transfer, seek or flush of a log file, the n-th allocation. 0: none.
int fail_write, short_write, fail_seek, fail_flush, fail_read, fail_allocation;

bool due(int& countdown) {
  return countdown > 0 && --countdown == 0;
}

void set_error_flag(FILE* stream) {
  stream->_flags |= 0x20;
}

}  // namespace

extern "C" {

size_t fwrite(const void* bytes, size_t size, size_t count, FILE* stream) {
  if (due(fail_write)) {
    set_error_flag(stream);
    errno = EIO;
    return 0;
  }
  if (due(short_write)) return 3;
  return REAL(fwrite)(bytes, size, count, stream);
}

size_t fread(void* bytes, size_t size, size_t count, FILE* stream) {
  if (due(fail_read)) {
    set_error_flag(stream);
    errno = EIO;
    return 0;
  }
  return REAL(fread)(bytes, size, count, stream);
}

int fseeko(FILE* stream, off_t offset, int whence) {
  if (due(fail_seek)) {
    errno = ENOSPC;
    return -1;
  }
  return REAL64(fseeko)(stream, offset, whence);
}

int fflush(FILE* stream) {
  if (due(fail_flush)) {
    errno = ENOSPC;
    return EOF;
  }
  return REAL(fflush)(stream);
}

void* plovmemdebug_malloc(size_t size, const char* file, int32_t line) {
  if (due(fail_allocation)) {
    errno = ENOMEM;
    return nullptr;
  }
  return REAL(plovmemdebug_malloc)(size, file, line);
}
}

namespace {

constexpr std::pair<int, uint32_t> kDone = {0, 0};

template <class T>
T at(const std::string& bytes, size_t offset) {
  T value;
  memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

std::string log_bytes() {
  return read_file(data_path("wexolog.log"));
}

TEST(Record, LayoutOfOneLog) {
  setenv("TZ", "XXX+1", 1);
  const Event event = {.classes = 0x33,
                       .type = 0x44,
                       .user = 0x5566,
                       .name = "twelve bytes",
                       .flags = XLOG_STANDARD_LOG_FLAG | XLOG_MODIFY_BLOCK_FLAG | XLOG_DISPLAY_AS_ERROR_FLAG,
                       .blocks = {{0x10, noise(100)}, {0x00, "\xFFraw"}, {0x11, ""}, {0x12, std::string(5000, 'a')}}};
  const Result result = record(event);
  ASSERT_TRUE(result == kDone);
  const std::string bytes = log_bytes();
  const auto header = at<xlog_file_header>(bytes, 0);
  EXPECT_EQ(header.last_log_offset, 1104u);
  EXPECT_EQ(header.class_last_log[0x33], 1104u);
  EXPECT_EQ(header.file_size, bytes.size());

  const auto log = at<xlog_log_header>(bytes + std::string(805, '\0'), 1104);
  EXPECT_EQ(log.log_info.total_log_size, bytes.size() - 1104);
  EXPECT_EQ(log.log_info.timestamp.seconds, result.timestamp.seconds);
  EXPECT_EQ(log.log_info.timestamp.hundredths, result.timestamp.hundredths);
  EXPECT_EQ(std::string(log.log_info.event_name, 12), "twelve bytes");
  EXPECT_EQ(log.log_info.log_flags, 0x0804);
  EXPECT_EQ(log.log_info.prev_log_offset, 1040u);
  EXPECT_EQ(log.log_info.prev_class_log_offset, 0u);
  ASSERT_EQ(log.log_info.num_blocks, 7);
  const unsigned ids[] = {0xF5, 0x10, 0x00, 0x11, 0x12, 0x01, 0x00};
  size_t offset = 1104 + 37 + 3 * 7, sizes[7];
  std::string data[7];
  for (int i = 0; i < 7; ++i) {
    EXPECT_EQ(log.block_info[i].block_id, ids[i]);
    sizes[i] = log.block_info[i].block_size;
    data[i] = bytes.substr(offset, sizes[i]);
    offset += sizes[i];
  }
  EXPECT_EQ(offset, bytes.size());
  EXPECT_EQ(data[0], std::string("\xFF\x00\x00\xC4\xFF", 5)) << "60 minutes west";
  EXPECT_EQ(data[1], "\xFF" + noise(100)) << "does not shrink: marked and stored";
  EXPECT_EQ(data[2], "\xFFraw") << "id 0 is raw whatever it begins with";
  EXPECT_EQ(data[3], "\xFF");
  EXPECT_LT(sizes[4], 1000u);
  EXPECT_EQ(data[4].substr(0, 12), std::string("\x05\x01\x04\x00\0\0\0\0\0\0\0\0", 12));
  EXPECT_EQ(data[6], std::string(64, '\0'));

  const auto logs = read_all();
  ASSERT_EQ(logs.size(), 2u);
  ASSERT_EQ(logs[0].blocks.size(), 7u);
  EXPECT_EQ(logs[0].blocks[1].bytes, noise(100));
  EXPECT_EQ(logs[0].blocks[4].bytes, std::string(5000, 'a'));
  const std::string standard = logs[0].blocks[5].bytes;
  ASSERT_EQ(standard.size(), 82u);
  EXPECT_EQ(at<uint16_t>(standard, 0), 2);
  EXPECT_STREQ(standard.substr(2, 51).c_str(), "record_test");
  EXPECT_EQ(at<uint32_t>(standard, 53), static_cast<uint32_t>(getpid()));
  EXPECT_EQ(at<uint32_t>(standard, 57), static_cast<uint32_t>(getppid()));
  EXPECT_EQ(at<uint32_t>(standard, 65), static_cast<uint32_t>(gettid()));
}

TEST(Record, ChainsAndStamps) {
  uint64_t last = 0;
  for (int i = 0; i < 6; ++i) {
    const Result result = record({.classes = static_cast<uint8_t>(i % 2 ? 0x21 : 0x22)});
    ASSERT_TRUE(result == kDone);
    const uint64_t stamp = result.timestamp.seconds * uint64_t{100} + result.timestamp.hundredths;
    EXPECT_GE(stamp, last + 1);
    last = stamp;
  }
  const std::string bytes = log_bytes();
  for (const unsigned classes : {0x21u, 0x22u}) {
    int count = 0;
    for (uint32_t offset = at<xlog_file_header>(bytes, 0).class_last_log[classes]; offset;) {
      const auto info = at<xlog_log_info>(bytes, offset);
      EXPECT_EQ(info.eventid.classes, classes);
      EXPECT_LT(info.prev_class_log_offset, offset);
      offset = info.prev_class_log_offset;
      ++count;
    }
    EXPECT_EQ(count, 3);
  }
}

TEST(Record, TwoClassesAreStoredUnderOthers) {
  const Result aa = record({.classes = 0xAA}), a = record({.classes = 0x0A});
  EXPECT_EQ(aa.eventid.classes, 0xE5);
  EXPECT_EQ(a.eventid.classes, 0xE4);
  const auto logs = read_all();
  EXPECT_EQ(logs[1].eventid.classes, 0xE5);
  EXPECT_EQ(logs[0].eventid.classes, 0xE4);
}

TEST(Record, UnversionedFileHasShorterBlocks) {
  ASSERT_TRUE(record({}) == kDone);
  std::string bytes = log_bytes();
  auto header = at<xlog_file_header>(bytes, 0);
  header.file_flags = 0;
  header.modify_block_size = 0;
  bytes.replace(0, sizeof header, reinterpret_cast<char*>(&header), sizeof header);
  write_file(data_path("wexolog.log"), bytes);
  ASSERT_TRUE(record({.flags = XLOG_STANDARD_LOG_FLAG | XLOG_MODIFY_BLOCK_FLAG}) == kDone);
  const auto log = read_all()[0];
  ASSERT_EQ(log.blocks.size(), 2u) << "no UTC block";
  EXPECT_EQ(log.blocks[0].bytes.size(), 80u);
  EXPECT_STREQ(log.blocks[0].bytes.substr(0, 51).c_str(), "record_test");
  EXPECT_EQ(log.blocks[1].bytes.size(), 10u) << "0 means 10";
}

TEST(Record, BlocksAreCutAndCounted) {
  std::string large(70000, '\0');
  for (size_t i = 0; i < large.size(); ++i) large[i] = static_cast<char>(i / 1000);
  ASSERT_TRUE(record({.blocks = {{0x10, large}}}) == kDone);
  EXPECT_EQ(read_all()[0].blocks[1].bytes, large.substr(0, 0xFF00));
  // One that does not shrink is longer by its mark than what readers take of a block: they see all but its last byte.
  large = noise(70000);
  ASSERT_TRUE(record({.blocks = {{0x10, large}}}) == kDone);
  EXPECT_EQ(read_all()[0].blocks[1].bytes, large.substr(0, 0xFEFF));

  const auto with_blocks = [](size_t count, uint16_t flags) {
    return record({.flags = flags, .blocks = std::vector<Block>(count, {0x20, "b"})});
  };
  const std::pair<int, uint32_t> refused = {2, XLOG_RECORD_TOO_MANY_BLOCKS};
  EXPECT_TRUE(with_blocks(254, 0) == kDone);
  EXPECT_EQ(read_all()[0].blocks.size(), 255u);
  EXPECT_TRUE(with_blocks(255, 0) == refused);
  EXPECT_TRUE(with_blocks(254, XLOG_STANDARD_LOG_FLAG) == kDone) << "256 entries are what readers take";
  EXPECT_TRUE(with_blocks(254, XLOG_STANDARD_LOG_FLAG | XLOG_MODIFY_BLOCK_FLAG) == refused);
  EXPECT_TRUE(with_blocks(400, 0) == refused);
  EXPECT_EQ(read_all().size(), 5u) << "a refused event is not in the file";
}

TEST(Record, LimitsOfTheFile) {
  write_file(console_path() + "wexoinit.trm", "9 x\n3 x\n9 x\n2 x\n0 x\n1 x\n1 x\n");
  // 4096 bytes a log at most, entries and the unencoded sizes counted; 6144 bytes a file.
  EXPECT_TRUE(record({.blocks = {{1, noise(4096)}}}) == std::make_pair(8, +XLOG_RECORD_TOO_LARGE));
  const std::string most = noise(4096 - 37 - 2 * 3 - 5);
  EXPECT_TRUE(record({.blocks = {{1, most + "x"}}}) == std::make_pair(8, +XLOG_RECORD_TOO_LARGE));
  EXPECT_TRUE(record({.blocks = {{1, most}}}) == kDone);
  // The second one makes room by taking the first one's.
  EXPECT_TRUE(record({.blocks = {{1, most}}}) == kDone);
  EXPECT_TRUE(record({.blocks = {{1, "small"}}}) == kDone);
}

TEST(Record, NamesAndOpenFailures) {
  EXPECT_TRUE(record({.target = "abcde"}) == std::make_pair(8, +XLOG_ERR_NAME_TOO_LONG));
  EXPECT_TRUE(record({.target = "!unknown.bin"}) == std::make_pair(8, +XLOG_ERR_OPEN));
  EXPECT_TRUE(record({.target = "e4", .blocks = {{1, "in e4"}}}) == kDone);
  EXPECT_EQ(read_all("e4").size(), 1u);
  write_file(data_path("wexob.log"), std::string(500, 'g'));
  EXPECT_EQ(record({.target = "b"}).comprc, +XLOG_ERR_READ_FILE_HEADER);
}

TEST(Record, MemoryFailures) {
  ASSERT_TRUE(record({}) == kDone);
  const uint32_t codes[] = {XLOG_RECORD_NO_INPUT_MEMORY, XLOG_RECORD_NO_OUTPUT_MEMORY, XLOG_RECORD_NO_MODIFY_MEMORY};
  for (int i = 0; i < 3; ++i) {
    fail_allocation = i + 1;
    EXPECT_TRUE(record({.flags = XLOG_MODIFY_BLOCK_FLAG}) == std::make_pair(8, codes[i])) << i;
  }
  fail_allocation = 3;
  EXPECT_TRUE(record({.blocks = {{1, "b"}}}) == std::make_pair(8, +XLOG_ENCODE_NO_CODES));
  fail_allocation = 0;
  EXPECT_TRUE(record({}) == kDone);
  EXPECT_EQ(read_all().size(), 3u + 4u) << "each of the four has an error log";
}

size_t own_events() {
  const auto logs = read_all();
  return static_cast<size_t>(
      std::count_if(logs.begin(), logs.end(), [](const ReadLog& log) { return log.name == "test event  "; }));
}

// Every transfer of a record fails once, at every position. The code is the step's; the file is as before, or, where
// the failure looks like damage, saved and begun anew; the next record succeeds.
void fail_each(int& failure, const std::vector<uint32_t>& codes) {
  const Event event = {.flags = XLOG_STANDARD_LOG_FLAG | XLOG_MODIFY_BLOCK_FLAG,
                       .blocks = {{0x10, "block"}, {0x00, "raw bytes"}}};
  ASSERT_TRUE(record(event) == kDone);
  for (size_t i = 0; i < codes.size(); ++i) {
    const size_t events = own_events();
    const std::string before = log_bytes();
    remove(data_path("wexosave.log").c_str());
    failure = static_cast<int>(i) + 1;
    const Result result = record(event);
    EXPECT_EQ(failure, 0) << "the failure at " << i + 1 << " did not happen";
    failure = 0;
    EXPECT_TRUE(result == std::make_pair(8, codes[i])) << i + 1 << ": " << testing::PrintToString(result);
    const bool damage = codes[i] == XLOG_RECORD_READ_ERROR || codes[i] % 2 == 1;
    const size_t kept = damage ? 0 : events;
    EXPECT_EQ(own_events(), kept) << "after failure " << i + 1;
    EXPECT_EQ(read_file(data_path("wexosave.log")).size() >= before.size(), damage);
    EXPECT_TRUE(record(event) == kDone);
    EXPECT_EQ(own_events(), kept + 1);
  }
  failure = static_cast<int>(codes.size()) + 1;
  EXPECT_TRUE(record(event) == kDone) << "there are more positions than were tried";
  failure = 0;
}

TEST(Record, EveryWriteFails) {
  fail_each(fail_write, {0x1400, 0x1404, 0x1402, 0x1402, 0x1404, 0x1406, 0x1400, 0x1408});
}

TEST(Record, EveryWriteIsShort) {
  fail_each(short_write, {0x1401, 0x1405, 0x1403, 0x1403, 0x1405, 0x1407, 0x1401, 0x1409});
}

TEST(Record, EverySeekFails) {
  fail_each(fail_seek, {0x1500, 0x1400, 0x1400, 0x1408});
}

TEST(Record, EveryFlushFails) {
  ASSERT_TRUE(record({}) == kDone);
  fail_flush = 1;
  EXPECT_TRUE(record({}) == std::make_pair(8, +XLOG_RECORD_HEADER_ERROR));
  EXPECT_EQ(read_all().size(), 2u);
  // Here only the report of the file header's flush is false; the event may be in the file, and the caller must not
  // believe it is.
  fail_flush = 2;
  EXPECT_TRUE(record({}) == std::make_pair(8, +XLOG_RECORD_FILE_HEADER_ERROR));
  EXPECT_TRUE(record({}) == kDone);
}

TEST(Record, ReadingTheHeaderFails) {
  ASSERT_TRUE(record({}) == kDone);
  fail_read = 2;  // the first read is the open's
  EXPECT_TRUE(record({}) == std::make_pair(8, +XLOG_RECORD_READ_ERROR));
  fail_read = 1;
  EXPECT_TRUE(record({}) == std::make_pair(8, +XLOG_ERR_READ_FILE_HEADER));
}

TEST(Record, BadMemoryAnywhereInTheRequest) {
  ASSERT_TRUE(record({}) == kDone);
  Pages pages(3, PROT_READ | PROT_WRITE);
  xlog_log_request request = {};
  request.eventid.classes = 1;
  const auto with = [&](xlog_data_node* node) {
    request.data = node;
    return codes(xlog_record, &request);
  };
  // The request's end is good, its beginning lies in a hole: the probe cannot see that. Then the same of data.
  EXPECT_EQ(codes(xlog_record, reinterpret_cast<xlog_log_request*>(pages.begin() - 100)),
            Codes(2, XLOG_RECORD_BAD_REQUEST));
  // A thread that holds the mutex of the probes can have nothing probed; the hole is met all the same.
  ASSERT_EQ(pthread_mutex_lock(&xtr_mutex_sem), 0);
  EXPECT_EQ(codes(xlog_record, reinterpret_cast<xlog_log_request*>(pages.begin() - 100)),
            Codes(2, XLOG_RECORD_BAD_REQUEST));
  ASSERT_EQ(pthread_mutex_unlock(&xtr_mutex_sem), 0);
  xlog_data_node node = {static_cast<uint32_t>(kPage), 0x10, pages.begin() - 100, nullptr};
  EXPECT_EQ(with(&node), Codes(2, XLOG_RECORD_BAD_DATA));
  node = {4, 0x10, "data", &node};
  EXPECT_EQ(with(&node), Codes(2, XLOG_RECORD_TOO_MANY_BLOCKS)) << "a chain that comes back to itself";
  node.next = reinterpret_cast<xlog_data_node*>(pages.end() - sizeof node + 4);
  EXPECT_EQ(with(&node), Codes(2, XLOG_RECORD_BAD_NODE)) << "a good node before one that passes a page's end";
  memset(request.target_session, 'x', sizeof request.target_session);
  EXPECT_EQ(with(nullptr), Codes(8, XLOG_ERR_NAME_TOO_LONG)) << "a name without end";
  EXPECT_EQ(read_all().size(), 2u);
  EXPECT_TRUE(record({}) == kDone);
}

}  // namespace
