// A process that dies at each step of making room in turn, and one whose disk is full at each step. A process of the
// other word size then reads the log; the next event must find the file that an undisturbed process would have left.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdio_ext.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <functional>

#include "support/child.h"
#include "support/doubles.h"
#include "support/files.h"
#include "support/full_log.h"
#include "support/log_calls.h"
#include "support/sanitized.h"
#include "support/worker.h"

using namespace test;

namespace {

enum class Cut { before, half, after, no_space };

int countdown;  // calls until death, 0: none
Cut cut;
FILE* image;         // the stream of the finished file beside the log
bool image_refused;  // the disk takes none

[[noreturn]] void die() {
  kill(getpid(), SIGKILL);
  for (;;) pause();
}

// `failure` is what the call gives on a full disk.
template <class Result, class Call>
Result step(Result failure, Call call) {
  const bool last = countdown > 0 && --countdown == 0;
  if (last && cut == Cut::no_space) return errno = ENOSPC, failure;
  if (last && cut == Cut::before) die();
  const Result result = call();
  if (last) die();
  return result;
}

}  // namespace

extern "C" {

size_t fwrite(const void* bytes, size_t size, size_t count, FILE* stream) {
  if (image_refused && stream == image) return errno = ENOSPC, 0;
  if (countdown == 1 && cut == Cut::half) {
    REAL(fwrite)(bytes, 1, size * count / 2, stream);
    REAL(fflush)(stream);
    die();
  }
  if (countdown == 1 && cut == Cut::no_space) stream->_flags |= 0x20;  // as stdio marks a stream in error
  return step(size_t{0}, [&] { return REAL(fwrite)(bytes, size, count, stream); });
}

FILE* fopen(const char* path, const char* mode) {
  FILE* const stream = step<FILE*>(nullptr, [&] { return REAL64(fopen)(path, mode); });
  if (strstr(path, ".new"))
    image = stream;
  else if (stream == image)
    image = nullptr;
  return stream;
}

int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = flags & O_CREAT ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return step(-1, [&] { return REAL64(open)(path, flags, mode); });
}

size_t fread(void* bytes, size_t size, size_t count, FILE* stream) {
  if (cut == Cut::no_space) return REAL(fread)(bytes, size, count, stream);  // which a full disk does not fail
  return step(size_t{0}, [&] { return REAL(fread)(bytes, size, count, stream); });
}

int fflush(FILE* stream) {
  return step(EOF, [&] { return REAL(fflush)(stream); });
}

int fclose(FILE* stream) {
  return step(EOF, [&] { return REAL(fclose)(stream); });
}

int fseeko(FILE* stream, off_t offset, int whence) {
  if (cut == Cut::no_space && __fpending(stream) == 0) return REAL64(fseeko)(stream, offset, whence);
  return step(-1, [&] { return REAL64(fseeko)(stream, offset, whence); });
}

int ftruncate(int file, off_t size) {
  return step(-1, [&] { return REAL64(ftruncate)(file, size); });
}

int rename(const char* from, const char* to) {
  return step(-1, [&] { return REAL(rename)(from, to); });
}

int unlink(const char* path) {
  return step(-1, [&] { return REAL(unlink)(path); });
}

// The time stands still, so that files can be compared.
int clock_nanosleep(clockid_t, int, const struct timespec*, struct timespec*) {
  return 0;
}

time_t time(time_t*) {
  return 1'700'000'000;
}

int gettimeofday(struct timeval* now, void*) {
  *now = {1'700'000'000, 0};
  return 0;
}
}

namespace {

const std::string kLog = data_path("wexolog.log");
const Event kEvent = {.classes = 0x13, .user = 1000, .blocks = {{0x20, noise(700)}}};

class RoomCrash : public testing::Test {
 protected:
  void SetUp() override {
    configure_full_log();
    before_ = {{kLog, log_filled_to(20000).bytes()}};
    put_back(before_);
    ASSERT_EQ(record(kEvent).sysrc, 0);
    after_ = read_file(kLog);
    ASSERT_LT(after_.size(), 15000u);
  }

  // The k-th call of `work` ends the child, or fails. False when there is none.
  bool disturbed(int k, Cut how, const std::function<int()>& work, int* result = nullptr) {
    const int end = in_child([&] {
      countdown = k;
      cut = how;
      const int worked = work();
      return countdown > 0 ? 100 : worked;
    });
    if (result) *result = end;
    EXPECT_TRUE(end < 101 || end == 1000 + SIGKILL) << end;
    return end != 100;
  }

  // A reader of the other word size repairs, if there is something to repair; then the event is recorded, unless it is
  // there already. A failure that has an entry of its own leaves a log with one event more.
  void expect_the_same_in_the_end(const std::string& where, const std::string& entry = "no such entry") {
    Process reader(other_abi_program("log_reader"));
    EXPECT_EQ(reader.wait(), 0) << where;
    EXPECT_EQ(check_log(kLog), 0) << where;
    EXPECT_FALSE(exists(kLog + ".new")) << where;
    if (read_file(kLog) != after_) {
      EXPECT_EQ(record(kEvent).sysrc, 0) << where;
    }
    const std::string log = read_file(kLog);
    EXPECT_TRUE(log == after_ || log.find(entry) != log.npos) << where;
    ++points_;
  }

  Files before_;
  std::string after_;
  int points_ = 0;
};

int record_it() {
  return record(kEvent).sysrc;
}

TEST_F(RoomCrash, KilledAtEachStepAndAgainAtEachStepOfTheRepair) {
  int repairs = 0;
  for (const Cut how : {Cut::before, Cut::half, Cut::after})
    for (int k = 1; !HasFailure(); k += kStep) {
      put_back(before_);
      if (!disturbed(k, how, record_it)) break;
      const std::string where = "call " + std::to_string(k) + ", cut " + std::to_string(static_cast<int>(how));
      const Files left = log_files();
      if (half_done(kLog)) {
        ++repairs;
        for (const Cut again : {Cut::before, Cut::half, Cut::after})
          for (int j = 1; !HasFailure(); j += kStep) {
            put_back(left);
            if (!disturbed(j, again, [] { return read_all().empty() ? 8 : 0; })) break;
            expect_the_same_in_the_end(where + ", then call " + std::to_string(j));
          }
        put_back(left);
      }
      expect_the_same_in_the_end(where);
    }
  printf("%d crash points, %d of them with a repair to be done\n", points_, repairs);
  EXPECT_GE(repairs, PLOV_SANITIZED ? 1 : 4);
  EXPECT_GE(points_, PLOV_SANITIZED ? 50 : 300);
}

// One step fails; whatever its code, the next record leads to the same file.
TEST_F(RoomCrash, ADiskThatIsFullOnceAtEachStep) {
  for (int k = 1; !HasFailure(); k += kStep) {
    put_back(before_);
    int result;
    if (!disturbed(k, Cut::no_space, record_it, &result)) break;
    EXPECT_TRUE(result == 0 || result == 8) << k;
    expect_the_same_in_the_end("failing call " + std::to_string(k), "Log Manager");
  }
  printf("%d failing calls\n", points_);
  EXPECT_GE(points_, 45 / kStep);
}

// Without space for the finished file the logs are moved where they lie. The file is then as long and as good.
TEST_F(RoomCrash, ADiskWithoutSpaceForTheFinishedFile) {
  put_back(before_);
  image_refused = true;
  EXPECT_EQ(record(kEvent), std::make_pair(0, 0u));
  EXPECT_TRUE(read_file(kLog) == after_);
  int given_up = 0;
  for (int k = 1; !HasFailure(); k += kStep, ++points_) {
    put_back(before_);
    int result;
    if (!disturbed(k, Cut::no_space, record_it, &result)) break;
    EXPECT_TRUE(result == 0 || result == 8) << k;
    const bool moved_without_header = half_done(kLog) && record_it() == 8;
    given_up += moved_without_header;
    if (moved_without_header) continue;
    EXPECT_EQ(record_it(), 0) << k;
    EXPECT_EQ(check_log(kLog), 0) << k;
  }
  EXPECT_GE(points_, 50 / kStep);
  // A second failure, of the header behind the moved logs, leaves a file that no longer tells where it ends.
  EXPECT_LE(given_up, 3);
}

}  // namespace
