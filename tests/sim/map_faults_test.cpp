// Every system call of the map fails in turn, once and from then on: of loading it, of attaching it, and of each
// operation. Each failure has its code, leaves nothing behind, and is over with the next call.
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
#include "xtr.h"

using test::codes;
using test::Codes;
using test::field;

namespace {

int countdown;       // calls of the map until the one that fails, 0: none
std::string failed;  // what it was
bool lasting;        // all later ones of its kind fail too

// What is told of a failing call: by its name and what it was for, the codes of a write and a line of the trace.
struct Told {
  int32_t sysrc;
  uint32_t comprc;
  const char* line;
};

bool fails(const std::string& what, int error) {
  const bool again = lasting && what == failed && what.find("EINTR") == std::string::npos;  // that one is repeated
  if (!again && (countdown == 0 || --countdown != 0)) return false;
  failed = what;
  errno = error;
  return true;
}

std::string segment(const char* call, unsigned key) {
  return call + std::string(key == XSIM_KEY_HEADER          ? " header"
                            : key == XSIM_KEY_TOLVANE_ARRAY ? " array"
                            : key == XSIM_KEY_TOLVANE_DATA  ? " data"
                            : key == XSIM_KEY_QUEN_ARRAY    ? " second array"
                            : key == XSIM_KEY_QUEN_DATA     ? " second data"
                                                            : " message");
}

int real_shmctl(int id, int command, shmid_ds* status) {
  const char* const name = sizeof(void*) == 4 ? "__shmctl64" : "shmctl";
  return reinterpret_cast<decltype(&shmctl)>(dlsym(RTLD_NEXT, name))(id, command, status);
}

unsigned key_of(int id) {
  shmid_ds status = {};
  real_shmctl(id, IPC_STAT, &status);
  return static_cast<unsigned>(status.shm_perm.__key);
}

}  // namespace

extern "C" {

int shmget(key_t key, size_t size, int flags) {
  if (fails(segment("shmget", static_cast<unsigned>(key)), ENOSPC)) return -1;
  return REAL(shmget)(key, size, flags);
}

void* shmat(int id, const void* address, int flags) {
  if (fails(segment("shmat", key_of(id)), ENOMEM)) return reinterpret_cast<void*>(-1);
  return REAL(shmat)(id, address, flags);
}

int shmctl(int id, int command, shmid_ds* status) {
  return fails(segment("shmctl", key_of(id)), EACCES) ? -1 : real_shmctl(id, command, status);
}

int semget(key_t key, int count, int flags) {
  return fails("semget", ENOSPC) ? -1 : REAL(semget)(key, count, flags);
}

// One that unlocks does so, or the test would hang as no caller of a kernel does.
int semop(int id, sembuf* operations, size_t count) {
  const std::string what = count == 2 ? "lock" : "unlock";
  if (fails(what + " EINTR", EINTR) || (count == 2 && fails(what + " ENOSPC", ENOSPC))) return -1;
  const bool gone = fails(what + " EIDRM", EIDRM);
  const int result = gone && count == 2 ? -1 : REAL(semop)(id, operations, count);
  return gone ? errno = EIDRM, -1 : result;
}

FILE* fopen(const char* path, const char* mode) {
  const char* const slash = strrchr(path, '/');
  const std::string name = slash ? slash + 1 : path;
  return name.find(".dat") + name.find("ywkzsfm") != 2 * std::string::npos && fails("fopen " + name, EMFILE)
             ? nullptr
             : REAL64(fopen)(path, mode);
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

using Failures = std::map<std::string, Told>;

constexpr Codes kDone(0, 0);

// Those of the semaphore, and what an operation says to them.
Failures with_semaphore(int32_t sysrc, Failures others, uint32_t comprc = XSIM_NO_SEMAPHORE) {
  others["lock ENOSPC"] = {sysrc, comprc, "XSIMSEMF: semop error of 1c on lock"};
  others["lock EIDRM"] = {sysrc, comprc, "XSIMSEMF: semop error of 2b on lock"};
  others["lock EINTR"] = others["unlock EINTR"] = {0, 0, ""};
  others["unlock EIDRM"] = {0, 0, "XSIMSEMF: semop error of 2b on unlock"};
  return others;
}

// The header block and the message block, as whoever comes first meets them.
Failures with_blocks(Failures others) {
  others["shmget header"] = {ENOSPC, XSIM_NO_MEMORY, "Error retrieving SIM shared memory block (errno=28 "};
  others["shmat header"] = {ENOMEM, XSIM_NO_MEMORY, "Error attaching to SIM shared memory block (errno=12 "};
  others["shmget message"] = {2, XSIM_NO_SEMAPHORE, "Error retrieving message shared memory block (errno=28 "};
  others["shmat message"] = {2, XSIM_NO_SEMAPHORE, "Error attaching to message shared memory block (errno=12 "};
  return with_semaphore(2, others);
}

const Failures kLoading = with_blocks({
    {"malloc", {2, XSIM_NO_MEMORY, ""}},
    {"fopen ywkzsim.dat", {2, XSIM_NO_DATA_FILE, "XSIM   D: YWKZSIM.DAT not found"}},
    {"fopen ywkzspr.dat", {2, XSIM_NO_PERMANENT_FILE, "XSIM   D: YWKZSPR.DAT not found"}},
    {"fopen kvdzsim.dat", {0, 0, ""}},  // the second array is optional
    {"fopen kvdzspr.dat", {2, XSIM_NO_PERMANENT_FILE, "XSIM   D: YWKZSPR.DAT not found"}},
    {"fread", {2, XSIM_READ_FAILED, ""}},
    {"shmget array", {2, XSIM_NO_MEMORY, "XSIM   F: shmget failed for Tolvane SIM array, errno of 1c"}},
    {"shmctl array", {2, XSIM_NO_MEMORY, "XSIM   F: shmat failed for Tolvane SIM array, errno of d"}},
    {"shmat array", {2, XSIM_NO_MEMORY, "XSIM   F: shmat failed for Tolvane SIM array, errno of c"}},
    {"shmget data", {2, XSIM_NO_MEMORY, "XSIM   F: shmget failed for Tolvane SIM data, errno of 1c"}},
    {"shmctl data", {2, XSIM_NO_MEMORY, "XSIM   F: shmat failed for Tolvane SIM data, errno of d"}},
    {"shmat data", {2, XSIM_NO_MEMORY, "XSIM   F: shmat failed for Tolvane SIM data, errno of c"}},
    {"shmget second array", {2, XSIM_NO_MEMORY, "XSIM   F: shmget failed for Quen SIM array, errno of 1c"}},
    {"shmctl second array", {2, XSIM_NO_MEMORY, "XSIM   F: shmat failed for Quen SIM array, errno of d"}},
    {"shmat second array", {2, XSIM_NO_MEMORY, "XSIM   F: shmat failed for Quen SIM array, errno of c"}},
    {"shmget second data", {2, XSIM_NO_MEMORY, "XSIM   F: shmget failed for Quen SIM data, errno of 1c"}},
    {"shmctl second data", {2, XSIM_NO_MEMORY, "XSIM   F: shmat failed for Quen SIM data, errno of d"}},
    {"shmat second data", {2, XSIM_NO_MEMORY, "XSIM   F: shmat failed for Quen SIM data, errno of c"}},
    {"fclose", {2, XSIM_CLOSE_FAILED, " perm SIM data rc is "}},
    {"semget", {2, XSIM_NO_SEMAPHORE, "XSIM   F: Error obtaining semaphore (errno=28 "}},
});

const Failures kAttaching = with_blocks({
    {"shmctl array", {2, XSIM_NO_ARRAY, "XSIMCHKF: First SIM access"}},
    {"shmat array", {2, XSIM_NO_ARRAY, ""}},
    {"shmctl data", {2, XSIM_NO_DATA_AREA, ""}},
    {"shmat data", {2, XSIM_NO_DATA_AREA, ""}},
    // Whoever asks for a field of the first array does not need the second.
    {"shmctl second array", {0, 0, ""}},
    {"shmat second array", {0, 0, ""}},
    {"shmctl second data", {0, 0, ""}},
    {"shmat second data", {0, 0, ""}},
});

std::string new_value() {
  static int value = 10000;
  return std::to_string(++value);
}

Codes write(uint32_t id) {
  return codes(xsim_write, id, new_value().c_str(), 0u);
}

struct Operation {
  const char* name;
  Codes (*run)();
  Failures failures;
  Codes whole = kDone;  // without a failure
};

const uint32_t kPieces[] = {2, 4, 1, 0, 4};
constexpr uint32_t kNoSize = 99;
constexpr Codes kNoJava(2, 0xA001);

const Operation kOperations[] = {
    {"read", [] { return codes(xsim_read, 9u, new_value().data()); }, with_semaphore(2, {})},
    {"large read", [] { return codes(xsim_read, 20u, std::string(600, ' ').data()); },
     with_semaphore(2, {{"malloc", {2, XSIM_NO_MEMORY, ""}}})},
    {"write", [] { return write(9); },
     with_semaphore(2, {{"fopen ywkzspr.dat", {2, XSIM_NO_PERMANENT_FILE, ""}},
                        {"fseeko", {2, XSIM_SEEK_FAILED, "XSIM   F: xsim_internal_file_write error,errno is 5"}},
                        {"fflush", {2, XSIM_WRITE_FAILED, ""}},
                        {"fclose", {0, 0, "XSIM   F: xdfc_close_file error "}}})},
    {"pieces read", [] { return codes(xsim_sub_read, 9u, new_value().data(), kPieces); }, with_semaphore(0, {})},
    // Of pieces, and of the copy in the file, no failure to write is told.
    {"pieces write", [] { return codes(xsim_sub_write, 9u, new_value().c_str(), kPieces, 0u); },
     with_semaphore(0, {{"fopen ywkzspr.dat", {0, 0, ""}},
                        {"fseeko", {0, 0, "xsim_internal_file_write error,errno is 5"}},
                        {"fflush", {0, 0, ""}},
                        {"fclose", {0, 0, "XSIM   F: xdfc_close_file error "}}})},
    {"file read", [] { return codes(xsim_file_read, 9u, new_value().data()); },
     with_semaphore(0, {{"fopen ywkzspr.dat", {0, XSIM_NO_PERMANENT_FILE, ""}},
                        {"fseeko", {0, XSIM_SEEK_FAILED, ""}},
                        {"fread", {0, XSIM_READ_FAILED, ""}},
                        {"fclose", {0, 0, "XSIM   F: xdfc_close_file error "}}})},
    {"file write", [] { return codes(xsim_file_write, 9u, new_value().c_str(), 0u); },
     with_semaphore(0, {{"fopen ywkzspr.dat", {0, 0, ""}},
                        {"fseeko", {0, 0, "xsim_internal_file_write error,errno is 5"}},
                        {"fflush", {0, 0, ""}},
                        {"fclose", {0, 0, "XSIM   F: xdfc_close_file error "}}})},
    {"size", [] { return Codes(0, xsim_size(9) == 5 ? 0 : kNoSize); }, with_semaphore(0, {}, kNoSize)},
    {"lock, unlock",
     [] {
       const Codes locked = codes(xsim_lock, 8u), unlocked = codes(xsim_unlock, 8u);
       return locked != kDone ? locked : unlocked;
     },
     with_semaphore(0, {})},
    {"read from Java",
     [] { return codes(xsim_read, 1500u, new_value().data()); },
     {{"malloc", {2, XSIM_UNKNOWN_FIELD, "XSIMSJLF: couldn't allocate storage for file"}},
      {"fopen ywkzsfm.h", {2, XSIM_UNKNOWN_FIELD, "XSIMSJLF: couldn't allocate storage for file"}},
      {"fread", {2, XSIM_UNKNOWN_FIELD, "XSIMSJLF: couldn't read file src rc = "}},
      {"fclose", {2, 0xA001, ""}}},
     kNoJava},
};

constexpr char kMark[] = "the call that fails";

unsigned descriptors() {
  unsigned count = 0;
  DIR* const list = opendir("/proc/self/fd");
  while (readdir(list)) ++count;
  closedir(list);
  return count;
}

// The `k`-th call fails, and the codes, the trace and what is left are as told. False when there was no such call.
bool fails_as_told(int k, bool for_good, const Operation& operation) {
  const unsigned open_before = descriptors(), blocks_before = plovmemdebug_list(nullptr, nullptr);
  xtr_trace("%s", kMark);
  countdown = k;
  lasting = for_good;
  failed.clear();
  const Codes outcome = operation.run();
  countdown = 0;
  lasting = false;
  if (failed.empty()) return false;
  const auto told = operation.failures.find(failed);
  if (told == operation.failures.end()) return ADD_FAILURE() << failed << " is not known", false;
  EXPECT_EQ(outcome, Codes(told->second.sysrc, told->second.comprc)) << failed;
  const std::string trace = test::traced();
  EXPECT_THAT(trace.substr(trace.rfind(kMark)), testing::HasSubstr(told->second.line)) << failed;
  EXPECT_EQ(descriptors(), open_before) << failed;
  EXPECT_EQ(plovmemdebug_list(nullptr, nullptr), blocks_before) << failed;
  return true;
}

// Another process reads the same; whatever came before, it waits for nobody.
void expect_seen_by_another(uint32_t id) {
  const std::string value = field(id, 5);
  EXPECT_EQ(test::wait_for(test::start_child([&] {
              alarm(10);
              return field(id, 5) == value ? 0 : 1;
            })),
            0)
      << failed;
}

class MapFaults : public testing::Test {
 protected:
  void SetUp() override {
    test::MapFile()
        .add(8, test::kData, "first")
        .add(9, test::kPersistent, "first")
        .add(20, test::kZero, "", 600)
        .install();
    test::MapFile().add(4000, test::kPersistent, "quen").install("kvdz");
    test::write_file(test::config_path("ywkzsfm.h"), "1500 c 5\n");
    uint32_t size, code;
    xdfc_query_file_size("ywkzsim.dat", &size, &code);  // the path table is read
  }

  // Each call of the first write of a process fails, once and from then on: in a process and a name space of its own,
  // whose trace and checks are this one's way of telling. Returns the number of calls.
  template <class Arrange, class Check>
  static int first_writes(const Failures& all, Arrange arrange, Check check) {
    const Operation first = {"", [] { return write(8); }, all};
    for (int points = 0;; ++points)
      for (const bool for_good : {false, true}) {
        const int result = test::in_child([&] {
          if (unshare(CLONE_NEWIPC) != 0) return 2;
          arrange();
          if (!fails_as_told(points + 1, for_good, first)) return HasFailure() ? 1 : 100;
          check();
          return HasFailure() ? 1 : 0;
        });
        if (result == 100) return points;
        EXPECT_EQ(result, 0) << "call " << points + 1;
        if (result != 0) return -1;
      }
  }
};
TEST_F(MapFaults, OfLoadingLeaveAMapOrNone) {
  const int points = first_writes(
      kLoading, [] {},
      [] {
        // What only this process's own attaching or locking met is over; what the loading met stays.
        const bool loading = failed.find("open") + 1 || failed == "fread" || failed == "malloc" ||
                             failed.find(" array") + 1 || failed.find(" data") + 1;
        const Codes next = write(8);
        EXPECT_TRUE(next == kDone || (loading && next == Codes(2, XSIM_NOT_LOADED))) << failed;
        expect_seen_by_another(8);
      });
  EXPECT_GE(points, 36);
}

TEST_F(MapFaults, OfAttachingAreOverWithTheNextCall) {
  const auto load_in_another = [] { EXPECT_EQ(test::in_child([] { return write(9) == kDone ? 0 : 1; }), 0); };
  const int points = first_writes(kAttaching, load_in_another, [] {
    EXPECT_EQ(write(8), kDone) << failed;
    expect_seen_by_another(8);
  });
  EXPECT_GE(points, 13);
}

TEST_F(MapFaults, OfEachOperationAreOverWithTheNextCall) {
  for (const Operation& operation : kOperations) {
    SCOPED_TRACE(operation.name);
    EXPECT_EQ(operation.run(), operation.whole);
    size_t points = 0;
    for (;; ++points) {
      const int k = static_cast<int>(points) + 1;
      if (!fails_as_told(k, false, operation)) break;
      codes(xsim_unlock, 8u);
      fails_as_told(k, true, operation);
      codes(xsim_unlock, 8u);
      EXPECT_EQ(operation.run(), operation.whole) << failed;
      EXPECT_EQ(semctl(pxsim_hdr->semaphore_id, 0, GETVAL), 0) << failed;
      expect_seen_by_another(9);
    }
    EXPECT_GE(points, operation.failures.size());
  }
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
  expect_seen_by_another(9);
}

}  // namespace
