// A process that dies at each step of a record in turn: before a stream call, after it, and in the middle of a write.
// The log must then pass the check, hold every event that was taken, and take the next one.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "support/child.h"
#include "support/doubles.h"
#include "support/files.h"
#include "support/log_calls.h"
#include "support/worker.h"

using namespace test;

namespace {

enum class Cut { before, half, after };

int countdown;  // stream calls until death, 0: none
Cut cut;

[[noreturn]] void die() {
  kill(getpid(), SIGKILL);
  for (;;) pause();
}

bool dies_here() {
  return countdown > 0 && --countdown == 0;
}

template <class Call>
auto step(Call call) {
  const bool last = dies_here();
  if (last && cut == Cut::before) die();
  const auto result = call();
  if (last) die();
  return result;
}

}  // namespace

extern "C" {

size_t fwrite(const void* bytes, size_t size, size_t count, FILE* stream) {
  const auto function = REAL(fwrite);
  if (countdown == 1 && cut == Cut::half) {
    function(bytes, 1, size * count / 2, stream);
    REAL(fflush)(stream);
    die();
  }
  return step([&] { return function(bytes, size, count, stream); });
}

int fflush(FILE* stream) {
  return step([&] { return REAL(fflush)(stream); });
}

int fclose(FILE* stream) {
  return step([&] { return REAL(fclose)(stream); });
}

int fseeko(FILE* stream, off_t offset, int whence) {
  return step([&] { return REAL64(fseeko)(stream, offset, whence); });
}

int renameat2(int from_directory, const char* from, int to_directory, const char* to, unsigned flags) {
  return step([&] { return REAL(renameat2)(from_directory, from, to_directory, to, flags); });
}
}

namespace {

const Event kEvent = {.classes = 0x70,
                      .flags = XLOG_STANDARD_LOG_FLAG | XLOG_MODIFY_BLOCK_FLAG,
                      .blocks = {{0x10, std::string(3000, 'a')}, {0x00, "raw"}, {0x11, std::string(9000, '\x7f')}}};

// Records once in a child that dies at the k-th call. False when it lived.
bool dies_recording(int k, Cut how) {
  const int end = in_child([=] {
    countdown = k;
    cut = how;
    return record(kEvent).sysrc;
  });
  EXPECT_TRUE(end == 0 || end == 1000 + SIGKILL);
  return end != 0;
}

size_t enumerate(bool creating) {
  const std::string path = data_path("wexolog.log");
  size_t points = 0;
  for (const Cut how : {Cut::before, Cut::half, Cut::after}) {
    if (creating) remove(path.c_str());
    for (int k = 1; dies_recording(k, how); ++k, ++points) {
      if (exists(path)) {
        EXPECT_EQ(check_log(path), 0) << "died at call " << k;
      }
      const size_t before = exists(path) ? read_all().size() : 1;
      EXPECT_EQ(record(kEvent).sysrc, 0);
      const auto logs = read_all();
      EXPECT_EQ(logs.size(), before + 1);
      for (const ReadLog& log : logs)
        if (log.eventid.classes == kEvent.classes) {
          EXPECT_EQ(log.blocks.size(), 6u);
          EXPECT_EQ(log.blocks[1].bytes, kEvent.blocks[0].bytes);
          EXPECT_EQ(log.blocks[3].bytes, kEvent.blocks[2].bytes);
        }
      EXPECT_FALSE(exists(path + ".init"));
      if (creating) remove(path.c_str());
      if (testing::Test::HasFailure()) return points;
    }
  }
  return points;
}

TEST(CrashPoints, OfARecord) {
  ASSERT_EQ(record({}).sysrc, 0);
  const size_t points = enumerate(false);
  printf("%zu crash points\n", points);
  EXPECT_GE(points, 40u);
}

TEST(CrashPoints, OfTheRecordThatCreatesTheFile) {
  const size_t points = enumerate(true);
  printf("%zu crash points\n", points);
  EXPECT_GE(points, 60u);
}

}  // namespace
