// Every system call of the map fails in turn: of loading it, and of each operation. Each failure has its code, leaves
// nothing behind, and is over with the next call.
#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <map>

#include "plovmemdebug.h"
#include "support/child.h"
#include "support/codes.h"
#include "support/doubles.h"
#include "support/files.h"
#include "support/map_file.h"
#include "support/traced.h"
#include "xdfc.h"
#include "xsim.h"

using test::codes;
using test::Codes;
using test::field;

namespace {

int countdown;       // calls of the map until the one that fails, 0: none
std::string failed;  // what it was

// By id. The trace ring is attached before this program's own constructors run.
std::map<int, unsigned>& keys() {
  static std::map<int, unsigned> keys;
  return keys;
}

// What is told of a failing call: by its name and what it was for, the codes of a write and a line of the trace.
struct Told {
  int32_t sysrc;
  uint32_t comprc;
  const char* line;
};

bool fails(const std::string& what, int error) {
  if (countdown == 0 || --countdown != 0) return false;
  failed = what;
  errno = error;
  return true;
}

std::string segment(const char* call, unsigned key) {
  return call + std::string(key == XSIM_KEY_HEADER        ? " header"
                            : key == XSIM_KEY_MESSAGE     ? " message"
                            : (key - XSIM_KEY_HEADER) % 2 ? " array"
                                                          : " data");
}

}  // namespace

extern "C" {

int shmget(key_t key, size_t size, int flags) {
  if (fails(segment("shmget", static_cast<unsigned>(key)), ENOSPC)) return -1;
  const int id = REAL(shmget)(key, size, flags);
  keys()[id] = static_cast<unsigned>(key);
  return id;
}

void* shmat(int id, const void* address, int flags) {
  if (fails(segment("shmat", keys()[id]), ENOMEM)) return reinterpret_cast<void*>(-1);
  return REAL(shmat)(id, address, flags);
}

int semget(key_t key, int count, int flags) {
  return fails("semget", ENOSPC) ? -1 : REAL(semget)(key, count, flags);
}

int semop(int id, sembuf* operations, size_t count) {
  return count == 2 && fails("semop", ENOSPC) ? -1 : REAL(semop)(id, operations, count);
}

FILE* fopen(const char* path, const char* mode) {
  const char* const slash = strrchr(path, '/');
  const std::string name = slash ? slash + 1 : path;
  return name.find(".dat") != std::string::npos && fails("fopen " + name, EMFILE) ? nullptr : REAL64(fopen)(path, mode);
}

size_t fread(void* bytes, size_t size, size_t count, FILE* stream) {
  if (fails("fread", EISDIR)) {  // a stream in error, which reading a directory makes it
    const int directory = REAL64(open)("/", O_RDONLY | O_CLOEXEC);
    dup3(directory, fileno(stream), O_CLOEXEC);
    close(directory);
  }
  return REAL(fread)(bytes, size, count, stream);
}

int fseeko(FILE* stream, off_t offset, int origin) {
  return fails("fseeko", EIO) ? -1 : REAL64(fseeko)(stream, offset, origin);
}

int fflush(FILE* stream) {  // where stdio tells of a full disk
  return fails("fflush", ENOSPC) ? EOF : REAL(fflush)(stream);
}

int fclose(FILE* stream) {
  const bool failing = fails("fclose", EIO);
  const int result = REAL(fclose)(stream);
  return failing ? errno = EIO, EOF : result;
}

void* plovmemdebug_malloc(size_t size, const char* file, int32_t line) {
  return fails("malloc", ENOMEM) ? nullptr : REAL(plovmemdebug_malloc)(size, file, line);
}

}  // extern "C"

namespace {

// The first write of a process that finds no map.
const std::map<std::string, Told> kFirstWrite = {
    {"shmget header", {ENOSPC, XSIM_NO_MEMORY, "XSIM   F: Error retrieving SIM shared memory block (errno=28 "}},
    {"shmat header", {ENOMEM, XSIM_NO_MEMORY, "XSIM   F: Error attaching to SIM shared memory block (errno=12 "}},
    {"malloc", {2, XSIM_NO_MEMORY, ""}},
    {"fopen ywkzsim.dat", {2, XSIM_NO_DATA_FILE, "XSIM   D: YWKZSIM.DAT not found"}},
    {"fopen ywkzspr.dat", {2, XSIM_NO_PERMANENT_FILE, "XSIM   D: YWKZSPR.DAT not found"}},
    {"fopen kvdzsim.dat", {0, 0, ""}},  // the second array is optional
    {"fopen kvdzspr.dat", {2, XSIM_NO_PERMANENT_FILE, "XSIM   D: YWKZSPR.DAT not found"}},
    {"fread", {2, XSIM_READ_FAILED, ""}},
    {"shmget array", {2, XSIM_NO_MEMORY, " SIM array, errno of 1c"}},
    {"shmat array", {2, XSIM_NO_MEMORY, " SIM array, errno of c"}},
    {"shmget data", {2, XSIM_NO_MEMORY, " SIM data, errno of 1c"}},
    {"shmat data", {2, XSIM_NO_MEMORY, " SIM data, errno of c"}},
    {"fclose", {2, XSIM_CLOSE_FAILED, " perm SIM data rc is "}},
    {"shmget message", {2, XSIM_NO_SEMAPHORE, "XSIM   F: Error retrieving message shared memory block (errno=28 "}},
    {"shmat message", {2, XSIM_NO_SEMAPHORE, "XSIM   F: Error attaching to message shared memory block (errno=12 "}},
    {"semget", {2, XSIM_NO_SEMAPHORE, "XSIM   F: Error obtaining semaphore (errno=28 "}},
    {"semop", {2, XSIM_NO_SEMAPHORE, "XSIMSEMF: semop error of 1c on lock"}},
};

// A later one, of a persistent field.
const std::map<std::string, Told> kLaterWrite = {
    {"semop", {2, XSIM_NO_SEMAPHORE, "XSIMSEMF: semop error of 1c on lock"}},
    {"fopen ywkzspr.dat", {2, XSIM_NO_PERMANENT_FILE, ""}},
    {"fseeko", {2, XSIM_SEEK_FAILED, "XSIM   F: xsim_internal_file_write error,errno is 5"}},
    {"fflush", {2, XSIM_WRITE_FAILED, ""}},
    {"fclose", {0, 0, "XSIM   F: xdfc_close_file error "}},
};

unsigned descriptors() {
  unsigned count = 0;
  DIR* const list = opendir("/proc/self/fd");
  while (readdir(list)) ++count;
  closedir(list);
  return count;
}

// Of the call that fails, and of what follows it without a failure.
struct Outcome {
  Codes failing, next;
  std::string trace;
  unsigned descriptors_left, blocks_left;
};

Outcome write_with_failure(int k, uint32_t id, const char* value) {
  const unsigned open_before = descriptors(), blocks_before = plovmemdebug_list(nullptr, nullptr);
  countdown = k;
  failed.clear();
  Outcome outcome = {};
  outcome.failing = codes(xsim_write, id, value, 0u);
  countdown = 0;
  outcome.trace = test::traced();
  outcome.descriptors_left = descriptors() - open_before;
  outcome.blocks_left = plovmemdebug_list(nullptr, nullptr) - blocks_before;
  outcome.next = codes(xsim_write, id, "after", 0u);
  return outcome;
}

bool is_told(const Outcome& outcome, const std::map<std::string, Told>& all) {
  const auto told = all.find(failed);
  if (told == all.end()) return false;
  EXPECT_EQ(outcome.failing, Codes(told->second.sysrc, told->second.comprc)) << failed;
  EXPECT_THAT(outcome.trace, testing::HasSubstr(told->second.line)) << failed;
  EXPECT_EQ(outcome.descriptors_left, 0u) << failed;
  EXPECT_EQ(outcome.blocks_left, 0u) << failed;
  return true;
}

// Another process reads the field; whatever came before, it waits for nobody.
std::string seen_by_another(uint32_t id) {
  const pid_t child = test::start_child([id] {
    alarm(10);
    const std::string value = field(id, 5);
    return value == "after" ? 0 : value == "?21" ? 21 : 1;
  });
  const int result = test::wait_for(child);
  return result == 0 ? "the value" : result == 21 ? "no map" : "neither: " + std::to_string(result);
}

class MapFaults : public testing::Test {
 protected:
  void SetUp() override {
    test::MapFile().add(8, test::kData, "first").add(9, test::kPersistent, "first").install();
    test::MapFile().add(4000, test::kPersistent, "quen").install("kvdz");
    uint32_t size, code;
    xdfc_query_file_size("ywkzsim.dat", &size, &code);  // the path table is read
  }
};

// Each in a process and a name space of its own; the trace and the checks are this one's way of telling.
TEST_F(MapFaults, OfTheFirstWriteHaveTheirCodesAndLeaveAMapOrNone) {
  int points = 0;
  for (bool more = true; more; ++points) {
    const int result = test::in_child([&] {
      if (unshare(CLONE_NEWIPC) != 0) return 2;
      const Outcome outcome = write_with_failure(points + 1, 8, "start");
      if (failed.empty()) return outcome.failing == Codes(0, 0) ? 100 : 3;
      if (!is_told(outcome, kFirstWrite)) ADD_FAILURE() << failed << " is not known";
      // What only this process's own attaching or locking met is over; what the loading met stays.
      EXPECT_TRUE(outcome.next == Codes(0, 0) || outcome.next == Codes(2, XSIM_NOT_LOADED)) << failed;
      const bool loading = failed.substr(0, 5) == "fopen" || failed == "fread" || failed == "malloc" ||
                           failed.find(" array") != std::string::npos || failed.find(" data") != std::string::npos;
      if (!loading) {
        EXPECT_EQ(outcome.next, Codes(0, 0)) << failed;
      }
      EXPECT_EQ(seen_by_another(8), outcome.next.first == 0 ? "the value" : "no map") << failed;
      return HasFailure() ? 1 : 0;
    });
    ASSERT_TRUE(result == 0 || result == 100) << "call " << points + 1 << ": " << result;
    more = result == 0;
  }
  EXPECT_GE(points, 28);
}

TEST_F(MapFaults, OfALaterWriteAreOverWithTheNext) {
  EXPECT_EQ(codes(xsim_write, 9, "start", 0u), Codes(0, 0));
  int points = 0;
  for (;; ++points) {
    const Outcome outcome = write_with_failure(points + 1, 9, "again");
    if (failed.empty()) break;
    ASSERT_TRUE(is_told(outcome, kLaterWrite)) << failed << " is not known";
    EXPECT_EQ(outcome.next, Codes(0, 0)) << failed;
    EXPECT_EQ(seen_by_another(9), "the value") << failed;
    EXPECT_EQ(semctl(pxsim_hdr->semaphore_id, 0, GETVAL), 0) << failed;
  }
  EXPECT_GE(points, 5);
}

// By hand, or by a tool that tidies up. The block still names it.
TEST_F(MapFaults, ARemovedSemaphoreIsMadeAnew) {
  EXPECT_EQ(codes(xsim_write, 9, "first", 0u), Codes(0, 0));
  const int removed = pxsim_hdr->semaphore_id;
  const pid_t other = test::start_child([] {
    while (semctl(pxsim_hdr->semaphore_id, 0, GETVAL) >= 0) usleep(100);
    alarm(10);
    return codes(xsim_write, 9, "after", 0u) == Codes(0, 0) ? 0 : 1;
  });
  ASSERT_EQ(semctl(removed, 0, IPC_RMID), 0);
  EXPECT_EQ(test::wait_for(other), 0);
  EXPECT_NE(pxsim_hdr->semaphore_id, removed);
  EXPECT_EQ(field(9, 5), "after") << "the other process made it";
  EXPECT_THAT(test::traced(), testing::HasSubstr("XSIMSEMF: semop error of 16 on lock"));
  EXPECT_EQ(semctl(pxsim_hdr->semaphore_id, 0, GETVAL), 0);
  EXPECT_EQ(seen_by_another(9), "the value");
}

}  // namespace
