// What a retrieval does when the file is damaged, the disk fails, memory is out, or a pointer is bad. The error
// handler, the allocator, the reads and the lock are doubles.
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <set>

#include "plovmemdebug.h"
#include "support/doubles.h"
#include "support/files.h"
#include "support/log_file.h"
#include "support/pages.h"
#include "support/retrieval.h"
#include "xsem.h"

namespace {

using test::Retrieval, test::stored;

struct World {
  std::vector<xlog_err_interface> reports;  // what the error handler was told
  std::set<void*> blocks;                   // given out and not freed
  int allocations = 0, failing_allocation = -1;
  int lock_depth = 0;
  int32_t lock_code = 0;
  off_t bad_from = 0, bad_to = 0;  // a range of the file that gives EIO
  off_t end = 0;                   // where reads find the file's end, 0: where it is
} world;

}  // namespace

int32_t xlog_error_handler(xlog_err_interface* err) {
  world.reports.push_back(*err);
  return 8;
}

void* plovmemdebug_malloc(size_t size, const char*, int32_t) {
  if (world.allocations++ == world.failing_allocation) {
    errno = ENOMEM;
    return nullptr;
  }
  void* block = malloc(size);
  memset(block, 0xA5, size);
  world.blocks.insert(block);
  return block;
}

void plovmemdebug_free(void* block, const char*, int32_t) {
  if (!block) return;
  EXPECT_EQ(world.blocks.erase(block), 1u) << "foreign or double free";
  free(block);
}

int32_t xsem_lockSemaphore(xsem_handle_t, uint32_t, int32_t* crc) {
  *crc = world.lock_code;
  if (*crc == 0) ++world.lock_depth;
  return *crc;
}

int32_t xsem_unlockSemaphore(xsem_handle_t, int32_t* crc) {
  *crc = world.lock_depth == 0 ? 1 : 0;
  if (*crc == 0) --world.lock_depth;
  return *crc;
}

ssize_t pread(int fd, void* buffer, size_t size, off_t offset) {
  const off_t end = offset + static_cast<off_t>(size);
  if (offset < world.bad_to && end > world.bad_from) {
    errno = EIO;
    return -1;
  }
  if (world.end && end > world.end) size = offset < world.end ? static_cast<size_t>(world.end - offset) : 0;
  return REAL64(pread)(fd, buffer, size, offset);
}

namespace {

class RetrieveFailures : public testing::Test {
 protected:
  RetrieveFailures() {
    world = {};
    std::filesystem::create_directories(test::data_path(""));
    first = file.add({.eventid = {1, 1, 1}, .blocks = {stored(1, std::string(3000, '1')), test::raw(0, "raw")}});
    second = file.add({.eventid = {1, 1, 2}, .blocks = {stored(1, std::string(3000, '2')), test::raw(0, "raw")}});
    third = file.add({.eventid = {2, 1, 3}, .blocks = {test::encoded(1, "coded"), test::raw(0, "raw")}});
  }

  ~RetrieveFailures() override {
    EXPECT_EQ(world.lock_depth, 0);
    EXPECT_EQ(xlog_sig_flag, 0u);
    EXPECT_THAT(world.blocks, testing::IsEmpty());
  }

  void save() { test::write_file(test::data_path("wexolog.log"), file.bytes()); }

  // Retrieves and looks whether it failed like this, with this in the error handler's hands (level 0: not called).
  void expect_failure(Retrieval&& retrieval, int32_t sysrc, uint32_t comprc, unsigned level, uint32_t reason) {
    SCOPED_TRACE(testing::Message() << std::hex << comprc);
    world.reports.clear();
    EXPECT_EQ(retrieval.run(), sysrc);
    EXPECT_EQ(retrieval.comprc, comprc);
    EXPECT_EQ(retrieval.count, 0u);
    EXPECT_EQ(retrieval.result, nullptr);
    ASSERT_EQ(world.reports.size(), level == 0 ? 0u : 1u);
    if (level == 0) return;
    EXPECT_EQ(world.reports[0].error_id, comprc);
    EXPECT_EQ(world.reports[0].error_level, level);
    EXPECT_EQ(world.reports[0].error_reason, reason);
  }

  test::LogFile file;
  uint32_t first, second, third;
  const xlog_eventid class1 = {1, 0, 0};
};

TEST_F(RetrieveFailures, DamagedLinksCountsAndOffsets) {
  const test::LogFile good = file;
  struct Case {
    std::function<void()> damage;
    uint16_t options;
    uint32_t comprc, reason;
  };
  const Case cases[] = {
      {[&] { file.info(second).prev_log_offset = second; }, XLOG_OPT_ALL_CLASSES, XLOG_RETRIEVE_BAD_LINK, second},
      {[&] { file.info(second).prev_class_log_offset = third; }, XLOG_OPT_ANY_EVENTID, XLOG_RETRIEVE_BAD_CLASS_LINK,
       second},
      {[&] { file.info(second).prev_class_log_offset = 0xFFFFFFFF; }, 0, XLOG_RETRIEVE_BAD_CLASS_LINK, second},
      {[&] { file.info(first).num_blocks = 257; }, XLOG_OPT_ANY_EVENTID, XLOG_RETRIEVE_CORRUPT, first},
      {[&] { file.info(third).num_blocks = 256; }, XLOG_OPT_ALL_CLASSES, XLOG_RETRIEVE_CORRUPT, third},
      {[&] { file.info(second).prev_log_offset = file.header.file_size + 1; }, XLOG_OPT_ANY_EVENTID,
       XLOG_RETRIEVE_CORRUPT, second},
      {[&] { file.info(second).prev_log_offset = 1039; }, XLOG_OPT_ALL_CLASSES, XLOG_RETRIEVE_CORRUPT, 1039},
      {[&] { file.header.last_log_offset = file.header.file_size; }, XLOG_OPT_ALL_CLASSES, XLOG_RETRIEVE_NO_START,
       file.header.file_size},
      {[&] { file.header.class_last_log[1] = file.header.file_size + 1; }, XLOG_OPT_ANY_EVENTID, XLOG_RETRIEVE_NO_START,
       1},
      {[&] { file.header.file_size = file.header.last_log_offset = 0xFFFFFFFF, --file.header.last_log_offset; },
       XLOG_OPT_ALL_CLASSES, XLOG_RETRIEVE_HEADER_SHORT, 0},
      {[&] { file.logs.resize(third - XLOG_FILE_HEADER_SIZE + 36); }, XLOG_OPT_ALL_CLASSES, XLOG_RETRIEVE_HEADER_SHORT,
       36},
      {[&] { file.logs.resize(third - XLOG_FILE_HEADER_SIZE + 37 + 2 * 3 + 2); }, XLOG_OPT_ALL_CLASSES,
       XLOG_RETRIEVE_BLOCK_SHORT, 2},
  };
  for (const Case& one : cases) {
    file = good;
    one.damage();
    save();
    expect_failure(Retrieval(one.options, class1), 8, one.comprc, XLOG_LEVEL_DAMAGED, one.reason);
  }
}

TEST_F(RetrieveFailures, OfTheDisk) {
  save();
  world.bad_to = 1;
  expect_failure(Retrieval(), 8, XLOG_RETRIEVE_FILE_HEADER_ERROR, XLOG_LEVEL_DAMAGED, EIO);
  world.bad_from = second, world.bad_to = second + 1;
  expect_failure(Retrieval(), 8, XLOG_RETRIEVE_HEADER_ERROR, XLOG_LEVEL_DAMAGED, EIO);
  world.bad_from = second + 2000, world.bad_to = second + 2001;
  expect_failure(Retrieval(), 8, XLOG_RETRIEVE_BLOCK_ERROR, XLOG_LEVEL_DAMAGED, EIO);
  EXPECT_THAT(test::users(XLOG_OPT_ALL_CLASSES, {}, {}, {}, 1), testing::ElementsAre("3"))
      << "a bad sector hurts only the log that lies in it";
  world.bad_to = 0;
  world.end = XLOG_FILE_HEADER_SIZE - 1;
  expect_failure(Retrieval(), 8, XLOG_RETRIEVE_FILE_HEADER_SHORT, XLOG_LEVEL_DAMAGED, XLOG_FILE_HEADER_SIZE - 1);
}

TEST_F(RetrieveFailures, OfTheLockAndOfTheOpenedFile) {
  save();
  world.lock_code = 77;
  expect_failure(Retrieval(), 8, XLOG_RETRIEVE_NO_LOCK, XLOG_LEVEL_REPORT, 77);
  world.lock_code = 0;
  test::write_file(test::data_path("wexolog.log"), file.bytes().substr(0, 1000));
  expect_failure(Retrieval(), 8, XLOG_ERR_READ_FILE_HEADER, XLOG_LEVEL_DAMAGED, 0);
}

TEST_F(RetrieveFailures, OfEachAllocation) {
  file.info(first).log_flags = 0;
  save();
  const std::string pattern_bytes(1, '\0');
  xlog_pattern pattern = {1, 0, reinterpret_cast<const uint8_t*>("r"),
                          reinterpret_cast<const uint8_t*>(pattern_bytes.data()), nullptr};
  std::set<std::pair<int32_t, uint32_t>> seen;
  Retrieval().run();  // the path table is loaded, which needs memory once
  for (int k = 0;; ++k) {
    ASSERT_LT(k, 100);
    world.allocations = 0;
    world.failing_allocation = k;
    Retrieval retrieval;
    retrieval.patterns = &pattern;
    if (retrieval.run() == 0) break;
    EXPECT_EQ(retrieval.result, nullptr);
    EXPECT_EQ(retrieval.count, 0u);
    seen.insert({retrieval.sysrc, retrieval.comprc});
  }
  EXPECT_EQ(seen, (std::set<std::pair<int32_t, uint32_t>>{{2, 0},
                                                          {8, XLOG_RETRIEVE_NO_BUFFER},
                                                          {8, XLOG_RETRIEVE_NO_ENTRY_MEMORY},
                                                          {8, XLOG_RETRIEVE_NO_BLOCK_MEMORY},
                                                          {8, XLOG_RETRIEVE_NO_EXPANDED_MEMORY},
                                                          {8, XLOG_RETRIEVE_NO_RAW_MEMORY},
                                                          {8, XLOG_DECODE_NO_CODES},
                                                          {8, XLOG_DECODE_NO_STAGING},
                                                          {8, XLOG_DECODE_NO_DICTIONARY}}));
  for (const xlog_err_interface& report : world.reports)
    EXPECT_EQ(report.error_level, report.error_id == XLOG_RETRIEVE_NO_BUFFER ? XLOG_LEVEL_REPORT : XLOG_LEVEL_RECORD);
}

TEST_F(RetrieveFailures, BadPointersAreRefusedBeforeTheLock) {
  save();
  world.lock_code = 77;
  test::Pages readable(2, PROT_READ), memory(3, PROT_READ | PROT_WRITE);
  memory.protect(1, PROT_NONE);
  const uint8_t* after_hole = memory.end() - 8;
  const uint8_t* over_hole = memory.begin() + test::kPage - 8;
  xlog_pattern pattern = {16, 1, readable.begin(), readable.begin(), nullptr};
  const auto with = [&](const std::function<void(Retrieval&)>& change_request, uint32_t comprc) {
    Retrieval retrieval;
    pattern = {16, 1, readable.begin(), readable.begin(), nullptr};
    retrieval.patterns = &pattern;
    change_request(retrieval);
    expect_failure(std::move(retrieval), 2, comprc, 0, 0);
  };
  with([&](auto& r) { r.patterns = static_cast<xlog_pattern*>(static_cast<void*>(readable.begin())); },
       XLOG_RETRIEVE_BAD_PATTERN);
  with([&](auto&) { pattern.next = reinterpret_cast<xlog_pattern*>(-1); }, XLOG_RETRIEVE_BAD_PATTERN);
  with([&](auto&) { pattern.next = &pattern; }, XLOG_RETRIEVE_BAD_PATTERN);
  with([&](auto&) { pattern.data = over_hole; }, XLOG_RETRIEVE_BAD_PATTERN_DATA);
  with([&](auto&) { pattern.mask = nullptr; }, XLOG_RETRIEVE_BAD_PATTERN_MASK);
  with([&](auto&) { pattern.length = 0xFFFFFFFF; }, XLOG_RETRIEVE_BAD_PATTERN_DATA);
  with([&](auto&) { pattern.length = 2 * test::kPage, pattern.mask = after_hole + 8 - pattern.length; },
       XLOG_RETRIEVE_BAD_PATTERN_MASK);
  with([&](auto& r) { r.id_list = over_hole, r.id_count = 16; }, XLOG_RETRIEVE_BAD_ID_LIST);
  with([&](auto& r) { r.id_list = over_hole, r.id_count = 8 + test::kPage + 8; }, XLOG_RETRIEVE_BAD_ID_LIST);

  uint32_t comprc = 5;
  EXPECT_EQ(xlog_retrieve(nullptr, &comprc), 2);
  EXPECT_EQ(comprc, XLOG_RETRIEVE_BAD_BLOCK);
  Retrieval untouched;
  untouched.count = 17;
  EXPECT_EQ(xlog_retrieve(&untouched, static_cast<uint32_t*>(static_cast<void*>(readable.begin()))), 1);
  EXPECT_EQ(untouched.count, 17u);
}

// A chain that somebody has written over is released up to the damage, and what is left can be looked at.
TEST_F(RetrieveFailures, ReleasingABrokenChainStopsAtTheBreak) {
  save();
  uint32_t comprc = 0;
  EXPECT_EQ(xlog_free(nullptr, &comprc), 2);
  EXPECT_EQ(comprc, XLOG_FREE_BAD_BLOCK);
  Retrieval retrieval;
  ASSERT_EQ(retrieval.run(), 0);
  xlog_log_entry* newest = retrieval.result;
  EXPECT_EQ(xlog_free(&retrieval, nullptr), 1);
  EXPECT_EQ(retrieval.result, newest);

  const auto stops = [&](uint32_t code, const xlog_log_entry* at) {
    EXPECT_EQ(retrieval.free(), 2);
    EXPECT_EQ(retrieval.free_comprc, code);
    EXPECT_EQ(retrieval.result, at);
  };
  xlog_log_entry* broken = newest->next->next;
  xlog_block_entry* kept = broken->blocks->next;
  broken->blocks->next = reinterpret_cast<xlog_block_entry*>(16);
  stops(XLOG_FREE_BAD_BLOCK_ENTRY, broken);
  broken->blocks = kept;
  xlog_log_entry* oldest = broken->next;
  auto* const nowhere = reinterpret_cast<xlog_log_entry*>(16);
  broken->next = nowhere;
  stops(XLOG_FREE_BAD_ENTRY, nowhere);
  retrieval.result = oldest;

  xlog_block_entry* last = oldest->blocks->next;
  last->next = oldest->blocks;  // blocks in a circle
  stops(XLOG_FREE_BAD_BLOCK_ENTRY, oldest);
  last->next = nullptr;
  oldest->next = oldest;  // records in a circle
  stops(XLOG_FREE_BAD_ENTRY, oldest);
  oldest->next = nullptr;
  EXPECT_EQ(retrieval.free(), 0);
}

}  // namespace
