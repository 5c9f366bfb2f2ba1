// What becomes of a damaged log and of a failure in the middle of that: nothing is lost, the failure has a name in the
// main log, and nothing goes round in circles.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <thread>

#include "plovmemdebug.h"
#include "support/doubles.h"
#include "support/files.h"
#include "support/log_calls.h"
#include "support/retrieval.h"
#include "support/sanitized.h"
#include "support/worker.h"
#include "xsem.h"
#include "xtr.h"

using namespace test;

namespace {

// One failure to order among the calls of a kind: the n-th, or all from there on. Without an errno a short transfer.
enum Kind { kOpen, kRead, kWrite, kSeek, kClose, kName, kMemory, kLock, kKinds, kAny, kNone };
int failing = kNone, countdown, failure_errno;
bool for_ever, happened;
std::function<void()> instead;  // happens in place of the failure
int handlers, records;          // entered

bool fails(Kind kind) {
  if ((failing != kind && failing != kAny) || --countdown > 0 || (countdown < 0 && !for_ever)) return false;
  happened = true;
  errno = failure_errno;
  if (!instead) return true;
  failing = kNone;
  instead();
  return false;
}

size_t bad_transfer(FILE* stream) {
  if (failure_errno != 0) stream->_flags |= 0x20;
  return failure_errno != 0 ? 0 : 3;
}

}  // namespace

#define DOUBLE(type, function, parameters, kind, bad, real) \
  type function parameters {                                \
    return fails(kind) ? bad : real;                        \
  }

extern "C" {
DOUBLE(FILE*, fopen, (const char* path, const char* mode), kOpen, nullptr, REAL64(fopen)(path, mode))
DOUBLE(size_t, fread, (void* to, size_t size, size_t count, FILE* stream), kRead, bad_transfer(stream),
       REAL(fread)(to, size, count, stream))
DOUBLE(size_t, fwrite, (const void* from, size_t size, size_t count, FILE* stream), kWrite, bad_transfer(stream),
       REAL(fwrite)(from, size, count, stream))
DOUBLE(int, fseeko, (FILE * stream, off_t to, int whence), kSeek, -1, REAL64(fseeko)(stream, to, whence))
DOUBLE(int, fflush, (FILE * stream), kSeek, EOF, REAL(fflush)(stream))
DOUBLE(int, fclose, (FILE * stream), kClose, (REAL(fclose)(stream), EOF), REAL(fclose)(stream))
DOUBLE(int, rename, (const char* from, const char* to) noexcept, kName, -1, REAL(rename)(from, to))
DOUBLE(int, renameat2, (int at, const char* from, int to_at, const char* to, unsigned flags) noexcept, kName, -1,
       REAL(renameat2)(at, from, to_at, to, flags))
DOUBLE(int, unlink, (const char* path) noexcept, kName, -1, REAL(unlink)(path))
DOUBLE(void*, plovmemdebug_malloc, (size_t size, const char* file, int32_t line), kMemory, nullptr,
       REAL(plovmemdebug_malloc)(size, file, line))
DOUBLE(int32_t, xsem_lockSemaphore, (xsem_handle_t handle, uint32_t timeout, int32_t* crc), kLock, *crc = 8,
       REAL(xsem_lockSemaphore)(handle, timeout, crc))
int clock_nanosleep(clockid_t, int, const struct timespec*, struct timespec*) {
  return 0;  // two events need not be a hundredth of a second apart here
}
int32_t xtr_trace(const char* format, ...) {
  handlers += strcmp(format, "XLOG   F: -> xlog_error_handler") == 0;
  records += strcmp(format, "XLOG   T: -> xlog_record") == 0;
  return 0;
}
}

namespace {

const std::string kMain = data_path("wexolog.log"), kSaved = data_path("wexosave.log");

// The two entries of a replaced log: in numbers of class, type, user, and what the second names.
void expect_entries(const ReadLog& purge, const ReadLog& error, uint32_t comprc) {
  EXPECT_EQ(purge.name, std::string("Log Purge\0\0\0", 12));
  EXPECT_EQ(memcmp(&purge.eventid, "\0\0\x91\0", 4), 0);
  EXPECT_EQ(error.name, std::string("Log Manager\0", 12));
  EXPECT_EQ(error.eventid.classes << 8 | error.eventid.log_type, 0xE4FF);
  EXPECT_EQ(error.blocks[1].bytes.size(), 4000u) << "the trace";
  const uint16_t id = error.eventid.user;
  EXPECT_EQ(memcmp(error.blocks[2].bytes.data(), &id, sizeof id), 0);
  const bool silent = id >= XLOG_UPDATE_LOG_BAD_LINK && id <= XLOG_MARK_BAD_LINK && id != XLOG_MARK_BAD_START;
  const bool opening = comprc >= XLOG_UPDATE_LOG_NOT_OPEN && id == XLOG_ERR_READ_FILE_HEADER;
  EXPECT_EQ(comprc, silent ? 0 : opening ? comprc : id) << "a bad chain has no code, but for one";
}

class ErrorHandler : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(record({}).sysrc, 0);  // makes the directory
    for (uint16_t i = 0; i < 6; ++i)
      logs.push_back(file.add({.eventid = {static_cast<uint8_t>(7 + i % 2), 1, i}, .blocks = {raw(0, "modify me")}}));
  }
  void TearDown() override { EXPECT_EQ(xlog_error_pending, 0u); }

  std::vector<std::string> damages() {
    const std::string good = file.bytes();
    std::vector<std::string> all;
    const auto patch = [&](size_t offset, std::initializer_list<uint32_t> values, size_t width = 4) {
      for (const uint32_t value : values)
        all.push_back(std::string(good).replace(offset, width, reinterpret_cast<const char*>(&value), width));
    };
    const uint32_t end = file.header.file_size;
    for (const size_t size : {1, 13, 520, 1039}) all.push_back(good.substr(0, size));
    patch(offsetof(xlog_file_header, file_size), {0, 1, 1039});
    patch(offsetof(xlog_file_header, last_log_offset), {end, end + 1, ~0u, 1039});
    patch(offsetof(xlog_file_header, class_last_log) + 7 * 4, {end, end + 1, ~0u, 1039});
    for (const uint32_t log : logs) {
      patch(log + offsetof(xlog_log_info, prev_log_offset), {log, log + 1, ~0u, 1039});
      patch(log + offsetof(xlog_log_info, num_blocks), {257}, 2);
      all.push_back(good.substr(0, log + 36));
    }
    for (const uint32_t log : {logs[2], logs[4]})
      patch(log + offsetof(xlog_log_info, prev_class_log_offset), {log, log + 1, ~0u, 1039});
    return all;
  }

  LogFile file;
  std::vector<uint32_t> logs;
};

Codes retrieve(uint16_t options) {
  Retrieval retrieval(options, {7, 1, 0});
  retrieval.run();
  return {retrieval.sysrc, retrieval.comprc};
}

const xlog_event_identity kOldest = {{7, 1, 0}, {1000, 0}};
const std::function<Codes()> kOperations[] = {
    [] { return [](Result r) { return Codes(r.sysrc, r.comprc); }(record({})); },
    [] { return retrieve(XLOG_OPT_ALL_CLASSES); },
    [] { return retrieve(XLOG_OPT_ANY_EVENTID); },
    [] { return update_log(kOldest, "modified!"); },
    [] { return update_type(kOldest, 1); },
    [] { return mark_for_delete(kOldest); },
    [] {
      const xlog_purge_block purge = {.count = 1, .classes = {7}, .target_session = ""};
      return codes(xlog_log_purge, &purge);
    }};

TEST_F(ErrorHandler, DamagedBytesAreSavedAndAFreshLogNamesTheFailure) {
  const auto all = damages();
  EXPECT_GE(all.size(), 50u);
  int met = 0;
  for (size_t i = 0; i < all.size(); i += kStep) {
    bool noticed = false;
    for (const auto& operation : kOperations) {
      SCOPED_TRACE(testing::Message() << "damage " << i << ", operation " << &operation - kOperations);
      write_file(kMain, all[i]);
      remove(kSaved.c_str());
      const Codes result = operation();
      EXPECT_EQ(exists(kSaved), result.first == 8);
      if (result.first != 8) continue;
      noticed = true;
      ++met;
      // A purge has marked its logs before it meets a damage elsewhere.
      const bool marked = &operation == std::end(kOperations) - 1;
      EXPECT_TRUE(read_file(kSaved) == all[i] || (marked && read_file(kSaved).size() == all[i].size()));
      EXPECT_EQ(mode_of(kSaved), 0600u);
      EXPECT_EQ(record({}).sysrc, 0);
      EXPECT_EQ(check_log(kMain), 0);
      const auto fresh = read_all();
      ASSERT_EQ(fresh.size(), 4u);
      expect_entries(fresh[2], fresh[1], result.second);
    }
    EXPECT_TRUE(noticed) << i;
  }
  printf("%d damaged logs met\n", met);
  EXPECT_GE(met, 150 / kStep);
}

TEST_F(ErrorHandler, OtherLogsHaveTheirEntriesWhereTheyAreLookedFor) {
  for (const std::string target : {"e4", "abc"}) {
    const std::string path = data_path("wexo" + target + ".log");
    write_file(kMain, LogFile().bytes());
    write_file(path, "not a log");
    EXPECT_EQ(record({.target = target}).comprc, XLOG_ERR_READ_FILE_HEADER) << target;
    EXPECT_EQ(read_file(kSaved), "not a log");
    const auto main = read_all(), itself = read_all(target);
    ASSERT_EQ(main.size(), target == "e4" ? 2u : 3u);
    expect_entries(target == "e4" ? itself[0] : main[1], main[0], XLOG_ERR_READ_FILE_HEADER);
    EXPECT_EQ(itself.size(), 1u);
  }
}

// A prune takes no log lock: what keeps a recorder out of the file between its copying and its removal is its own lock.
TEST_F(ErrorHandler, TheLockOfE4OutlastsItsStream) {
  const std::string path = data_path("wexoe4.log");
  int locked = 0;
  instead = [&] {
    const int e4 = open(path.c_str(), O_RDWR);
    if (e4 < 0) return;
    EXPECT_NE(flock(e4, LOCK_EX | LOCK_NB), 0);
    close(e4);
    ++locked;
  };
  happened = true;
  for (int k = 1; happened && k < 20; ++k) {
    write_file(path, "damaged");
    failing = kName, countdown = k, happened = false;
    EXPECT_EQ(record({.target = "e4"}).sysrc, 8);
  }
  failing = kNone, instead = nullptr;
  EXPECT_GE(locked, 2);
}

TEST_F(ErrorHandler, WhatIsNotReplaced) {
  write_file("victim", "precious");
  remove(kSaved.c_str());
  ASSERT_EQ(symlink(std::filesystem::absolute("victim").c_str(), kSaved.c_str()), 0);
  for (const char* bytes : {"damaged", ""}) {
    write_file(kMain, bytes);
    EXPECT_EQ(record({}).sysrc, 8) << "an empty file is not worth its place";
  }
  EXPECT_EQ(record({.target = "save"}).sysrc, 8);
  EXPECT_EQ(read_file("victim") + read_file(kSaved), "preciousdamaged");
  xlog_err_interface err = {};
  err.error_level = XLOG_LEVEL_DAMAGED;
  EXPECT_EQ(xlog_error_handler(&err), 8);
  EXPECT_EQ(read_all().size(), 4u) << "no file is open: an error log";
}

TEST_F(ErrorHandler, EachStepOfAnUpdateHasItsCode) {
  const struct {
    Kind kind;
    int at, error;
    uint32_t log, type, mark;
  } cases[] = {{kRead, 1, EIO, 0x5600, 0x5601, 0x5602}, {kRead, 2, EIO, 0x5500, 0x5504, 0x5506},
               {kRead, 2, 0, 0x5501, 0x5505, 0x5507},   {kRead, 3, EIO, 0x5502, 0x5508, 0x550A},
               {kRead, 3, 0, 0x5503, 0x5509, 0x550B},   {kWrite, 1, EIO, 0x5400, 0x5402, 0x5404},
               {kWrite, 1, 0, 0x5401, 0x5403, 0x5405},  {kSeek, 3, EIO, 0x5400, 0x5402, 0x5404},
               {kLock, 1, EIO, 0x5300, 0x5301, 0x5302}};
  file.logs.resize(logs[1] - XLOG_FILE_HEADER_SIZE),
      file.header.class_last_log[7] = file.header.last_log_offset = logs[0];
  for (const auto& c : cases)
    for (int i = 0; i < 3; ++i) {
      write_file(kMain, file.bytes());
      failing = c.kind, countdown = c.at, failure_errno = c.error;
      EXPECT_EQ(kOperations[3 + i](), Codes(8, (&c.log)[i])) << std::hex << c.log;
    }
}

// Every step of the handler fails, once and from there on; then the directory goes away under it.
TEST_F(ErrorHandler, IsBoundedAndLosesNothingWhateverFailsInside) {
  const std::string gone = console_path() + "gone/", damaged = file.bytes().substr(0, 1000);
  int points = 0, most_handlers = 0, most_records = 0;
  const auto meet = [&](int kind, int error, int k) {
    write_file(kMain, damaged);
    remove(kSaved.c_str());
    failing = kind, countdown = k, failure_errno = error, happened = false;
    handlers = records = 0;
    EXPECT_TRUE(record({}).sysrc != 0 || instead) << "where the directory is gone the log is new";
    failing = kNone;
    if (exists(gone)) {
      std::filesystem::remove_all(data_path(""));
      std::filesystem::rename(gone, data_path(""));
    }
    most_handlers = std::max(most_handlers, handlers);
    most_records = std::max(most_records, records);
    EXPECT_EQ(xlog_error_pending, 0u);
    EXPECT_TRUE(read_file(kMain) == damaged || read_file(kSaved) == damaged) << "the damaged bytes are lost";
    std::thread([] { record({}); }).join();  // another thread gets the lock
    EXPECT_EQ(record({}).sysrc, 0);
    EXPECT_EQ(check_log(kMain), 0);
    points += happened;
    return happened && !HasFailure();
  };
  for (int kind = 0; kind < 2 * kKinds; ++kind)
    for (const int error : {EIO, ENOSPC}) {
      for_ever = kind >= kKinds;
      for (int k = 1; meet(kind % kKinds, error, k); k += kStep) continue;
    }
  for_ever = false;
  instead = [&] { std::filesystem::rename(data_path(""), gone); };
  for (int k = 1; meet(kAny, 0, k); k += kStep) continue;
  printf("%d points, at most %d handlers and %d records\n", points, most_handlers, most_records);
  EXPECT_GE(points, 350 / kStep);
  EXPECT_LE(most_handlers, 4);
  EXPECT_LE(most_records, 8);
}

}  // namespace
