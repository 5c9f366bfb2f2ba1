// The field operations on a map of this test's own.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#include <thread>

#include "support/child.h"
#include "support/codes.h"
#include "support/doubles.h"
#include "support/files.h"
#include "support/map_file.h"
#include "support/pages.h"
#include "support/traced.h"
#include "xsim.h"

using test::codes;
using test::Codes;
using test::field;
using testing::HasSubstr;

namespace {

int failing_open, failing_semop;  // errno
unsigned failing_key;             // of shmget
bool failing_seek, failing_flush;
unsigned writes;

}  // namespace

#define FAILING(condition, error, value) \
  if (condition) return errno = error, value

extern "C" FILE* fopen(const char* path, const char* mode) {
  FAILING(failing_open, failing_open, nullptr);
  return REAL64(fopen)(path, mode);
}
extern "C" int fseeko(FILE* stream, off_t offset, int origin) {
  FAILING(failing_seek, EIO, -1);
  return REAL64(fseeko)(stream, offset, origin);
}
extern "C" int fflush(FILE* stream) {
  FAILING(failing_flush, ENOSPC, EOF);
  return REAL(fflush)(stream);
}
extern "C" size_t fwrite(const void* bytes, size_t size, size_t count, FILE* stream) {
  ++writes;
  return REAL(fwrite)(bytes, size, count, stream);
}
extern "C" int semop(int id, sembuf* operations, size_t count) {
  FAILING(failing_semop, failing_semop, -1);
  return REAL(semop)(id, operations, count);
}
extern "C" int shmget(key_t key, size_t size, int flags) {
  FAILING(failing_key == static_cast<unsigned>(key), ENOSPC, -1);
  return REAL(shmget)(key, size, flags);
}

namespace {

constexpr Codes kDone(0, 0);

Codes write(uint32_t id, const std::string& value, uint32_t override_lock = 0) {
  return codes(xsim_write, id, value.data(), override_lock);
}

std::string permanent() {
  return test::read_file(test::config_path("ywkzspr.dat"));
}

std::string shared(uint32_t id) {  // bytes as they lie in the segment
  const auto* entry = static_cast<const xsim_entry*>(SIM_array[0]) + id - 1;
  const auto* area = static_cast<const char*>(shmat(pXsim_ptr->pass[0].data_id, nullptr, SHM_RDONLY));
  const std::string bytes(area + entry->offset, entry->size);
  shmdt(area);
  return bytes;
}

class Fields : public testing::Test {
 protected:
  void SetUp() override {
    test::MapFile()
        .add(5, test::kData, "five")
        .add(16, test::kPersistent, "12345678")
        .add(17, test::kPermanent, "unkept")
        .add(18, test::kData | 8, "kept?")  // no place in the permanent file
        .add(20, test::kZero, "", 600)
        .add(999, test::kData, "999")
        .add(2000, test::kData, "2000")
        .install();
    test::MapFile().add(4000, test::kPersistent, "quen").install("kvdz");
    fresh_ = permanent();
  }
  std::string fresh_;
};

TEST_F(Fields, AreReadWithTheirSizes) {
  EXPECT_EQ(field(5, 4), "five");
  EXPECT_EQ(field(999, 3), "999");
  EXPECT_EQ(field(2000, 4), "2000");
  EXPECT_EQ(field(4000, 4), "quen");
  EXPECT_EQ(field(20, 600), std::string(600, '\0'));
  const std::pair<uint32_t, uint32_t> sizes[] = {{5, 4},    {20, 600}, {4000, 4}, {6, 0},    {0, 0},
                                                 {2001, 0}, {2002, 0}, {4001, 0}, {1500, 0}, {0xFFFFFFFF, 0}};
  for (const auto& [id, size] : sizes) EXPECT_EQ(xsim_size(id), size) << id;
  const std::pair<uint32_t, const char*> failures[] = {{6, "?24"},    {0, "?23"},    {2001, "?24"},      {2002, "?23"},
                                                       {4001, "?24"}, {4003, "?23"}, {0x80000000, "?23"}};
  for (const auto& [id, code] : failures) EXPECT_EQ(field(id, 4), code) << id;
  EXPECT_STREQ(pxsim_hdr->eyecatcher, "SIM BUFFER");
}

TEST_F(Fields, LockedOnesAreReadAndWrittenOnlyByOverride) {
  EXPECT_EQ(codes(xsim_unlock, 5), Codes(0, XSIM_NOT_LOCKED));
  EXPECT_EQ(codes(xsim_lock, 5), kDone);
  EXPECT_EQ(codes(xsim_lock, 5), Codes(0, XSIM_ALREADY_LOCKED));
  std::string value(4, '.');
  EXPECT_EQ(codes(xsim_read, 5, value.data()), Codes(2, XSIM_FIELD_LOCKED));
  EXPECT_EQ(value, "five");
  EXPECT_EQ(write(5, "nope"), Codes(2, XSIM_FIELD_LOCKED));
  EXPECT_EQ(shared(5), "five");
  EXPECT_EQ(write(5, "over", 1), kDone);
  EXPECT_EQ(field(5, 4), "over") << "written and unlocked";
  EXPECT_EQ(codes(xsim_lock, 5), kDone);
  EXPECT_EQ(codes(xsim_unlock, 5), kDone);
  EXPECT_EQ(codes(xsim_lock, 6), Codes(0, XSIM_NOT_INITIALIZED));
  EXPECT_EQ(codes(xsim_unlock, 6), Codes(0, XSIM_NOT_INITIALIZED));
  EXPECT_EQ(codes(xsim_lock, 9999), Codes(0, XSIM_UNKNOWN_FIELD));
  const std::string trace = test::traced();
  for (const char* text :
       {"XSIM   F:Requested SIM field is already locked", "XSIM   F: Requested SIM field is not locked",
        "XSIM   F:Requested SIM field has not been initialized",
        "XSIM   F: Requested SIM field has not been initialized"})
    EXPECT_THAT(trace, HasSubstr(text));
}

TEST_F(Fields, PersistentOnesReachThePermanentFileWhenTheyChange) {
  EXPECT_EQ(write(16, "abcdefgh"), kDone);
  std::string expected = fresh_;
  EXPECT_EQ(permanent(), expected.replace(6, 8, "abcdefgh"));
  writes = 0;
  EXPECT_EQ(write(16, "abcdefgh"), kDone);
  EXPECT_EQ(write(17, "shared"), kDone);
  EXPECT_EQ(write(18, "other"), kDone);
  EXPECT_EQ(writes, 0u) << "an unchanged value, or one that is not kept there";
  EXPECT_EQ(permanent(), expected);
  EXPECT_EQ(field(17, 6), "shared");
  EXPECT_EQ(write(4000, "QUEN"), kDone);
  EXPECT_EQ(test::read_file(test::config_path("kvdzspr.dat")), "ppPPPPQUEN");

  std::string value(6, '.');
  EXPECT_EQ(codes(xsim_file_read, 17, value.data()), kDone);
  EXPECT_EQ(value, "unkept");
  EXPECT_EQ(codes(xsim_file_write, 17, "filed!", 0u), kDone);
  EXPECT_EQ(permanent(), expected.replace(18, 6, "filed!"));
  EXPECT_EQ(field(17, 6), "shared");
  EXPECT_EQ(codes(xsim_file_write, 5, "four", 0u), Codes(0, XSIM_NOT_PERMANENT));
  EXPECT_EQ(codes(xsim_file_read, 18, value.data()), Codes(0, XSIM_NOT_PERMANENT));
  codes(xsim_lock, 17);
  EXPECT_EQ(codes(xsim_file_read, 17, value.data()), Codes(0, XSIM_FIELD_LOCKED));
  EXPECT_EQ(value, "filed!");
  EXPECT_EQ(codes(xsim_file_write, 17, "locked", 0u), Codes(0, XSIM_FIELD_LOCKED));
  EXPECT_EQ(codes(xsim_file_write, 17, "locked", 1u), kDone);
  EXPECT_EQ(codes(xsim_unlock, 17), Codes(0, XSIM_NOT_LOCKED));
}

TEST_F(Fields, FailuresOfThePermanentFileHaveTheirCodes) {
  std::string value(6, '.');
  EXPECT_EQ(field(16, 8), "12345678");
  codes(xsim_lock, 16);
  failing_open = ENOENT;
  EXPECT_EQ(write(16, "11111111", 1), Codes(2, XSIM_NO_PERMANENT_FILE));
  EXPECT_EQ(codes(xsim_file_read, 17, value.data()), Codes(0, XSIM_NO_PERMANENT_FILE));
  EXPECT_EQ(codes(xsim_file_write, 17, "silent", 0u), kDone) << "its failure is not told";
  failing_open = 0, failing_seek = true;
  EXPECT_EQ(write(16, "22222222", 1), Codes(2, XSIM_SEEK_FAILED));
  EXPECT_EQ(codes(xsim_file_read, 17, value.data()), Codes(0, XSIM_SEEK_FAILED));
  failing_seek = false, failing_flush = true;
  EXPECT_EQ(write(16, "33333333", 1), Codes(2, XSIM_WRITE_FAILED));
  failing_flush = false;
  EXPECT_EQ(shared(16), "33333333");
  EXPECT_EQ(codes(xsim_unlock, 16), kDone) << "a failed write leaves the lock";
  test::write_file(test::config_path("ywkzspr.dat"), "ppPPPP12345678");
  EXPECT_EQ(codes(xsim_file_read, 17, value.data()), Codes(0, XSIM_READ_FAILED));
  EXPECT_EQ(value, "......");
}

TEST_F(Fields, PiecesArePackedInTheirOrder) {
  const uint32_t two[] = {2, 6, 2, 0, 3};
  char packed[8] = ".......";
  EXPECT_EQ(codes(xsim_sub_read, 16, packed, two), kDone);
  EXPECT_STREQ(packed, "78123..");
  EXPECT_EQ(codes(xsim_sub_write, 16, "xyABC", two, 0u), kDone);
  EXPECT_EQ(field(16, 8), "ABC456xy");
  EXPECT_EQ(permanent(), "ppPPPPABC456xyPPPPunkept");
  codes(xsim_lock, 16);
  EXPECT_EQ(codes(xsim_sub_read, 16, packed, two), Codes(0, XSIM_FIELD_LOCKED));
  EXPECT_STREQ(packed, "xyABC..");
  EXPECT_EQ(codes(xsim_sub_write, 16, "78123", two, 0u), Codes(0, XSIM_FIELD_LOCKED));
  failing_open = EACCES;
  EXPECT_EQ(codes(xsim_sub_write, 16, "78123", two, 1u), kDone) << "a piece's failure is not told";
  failing_open = 0;
  EXPECT_EQ(field(16, 8), "12345678");

  const uint32_t beside[] = {1, 8, 3}, outside[] = {2, 0, 1, 8, 0x10000}, wrapping[] = {1, 0xFFFFFFFF, 2}, none[] = {0};
  EXPECT_EQ(codes(xsim_sub_write, 16, "UNK", beside, 0u), kDone) << "into the neighbour, which callers do";
  EXPECT_EQ(shared(17), "UNKept");
  EXPECT_EQ(permanent().substr(14), "PPPPunkept");
  std::string large(0x10001, '.');
  EXPECT_EQ(codes(xsim_sub_read, 16, large.data(), outside), Codes(0, XSIM_NOT_INITIALIZED));
  EXPECT_EQ(large, std::string(0x10001, '.'));
  EXPECT_EQ(codes(xsim_sub_write, 16, large.data(), outside, 0u), Codes(0, XSIM_NOT_INITIALIZED));
  EXPECT_EQ(codes(xsim_sub_write, 16, large.data(), wrapping, 0u), Codes(0, XSIM_NOT_INITIALIZED));
  EXPECT_EQ(field(16, 8), "12345678");
  EXPECT_EQ(codes(xsim_sub_read, 16, packed, none), kDone);
  EXPECT_EQ(codes(xsim_sub_read, 6, packed, two), Codes(0, XSIM_NOT_INITIALIZED));
  EXPECT_EQ(codes(xsim_sub_write, 6, packed, two, 1u), Codes(0, XSIM_NOT_INITIALIZED));
}

// A probe looks at the end of a range only.
TEST_F(Fields, AHoleInTheMiddleOfABufferChangesNothing) {
  test::Pages pages(3, PROT_READ | PROT_WRITE);
  pages.protect(1, PROT_NONE);
  uint8_t* const across = pages.begin() + test::kPage - 1;
  const uint32_t whole[] = {20,  0, 300, 0, 300, 0, 300, 0, 300, 0, 300, 0, 300, 0, 300, 0, 300, 0, 300, 0, 300, 0,
                            300, 0, 300, 0, 300, 0, 300, 0, 300, 0, 300, 0, 300, 0, 300, 0, 300, 0, 300};
  EXPECT_EQ(codes(xsim_sub_read, 20, across, whole), Codes(0, XSIM_BAD_POINTER));
  EXPECT_EQ(codes(xsim_sub_write, 20, across, whole, 0u), Codes(0, XSIM_BAD_POINTER));
  EXPECT_EQ(field(20, 600), std::string(600, '\0'));
  EXPECT_EQ(semctl(pxsim_hdr->semaphore_id, 0, GETVAL), 0);
}

TEST_F(Fields, NoSemaphoreIsACode) {
  char value[8];
  EXPECT_EQ(field(5, 4), "five");
  failing_semop = EIDRM;
  EXPECT_EQ(codes(xsim_read, 5, value), Codes(2, XSIM_NO_SEMAPHORE));
  EXPECT_EQ(codes(xsim_lock, 5), Codes(0, XSIM_NO_SEMAPHORE));
  EXPECT_EQ(xsim_size(5), 0u);
  failing_semop = 0;
  EXPECT_EQ(field(5, 4), "five");
  EXPECT_THAT(test::traced(), HasSubstr("XSIMSEMF: semop error of 2b on lock"));
}

// What a first process leaves when it dies at the wrong moment, and what is none of ours.
TEST_F(Fields, AHalfMadeMessageBlockIsCompletedAndAForeignOneRefused) {
  const int id = shmget(static_cast<key_t>(XSIM_KEY_MESSAGE), 24, IPC_CREAT | 0666);
  auto* const block = static_cast<xsim_message_block*>(shmat(id, nullptr, 0));
  memcpy(block->eyecatcher, "SOMEBODY ELSE", 13);
  EXPECT_EQ(field(5, 4), "?17");
  EXPECT_THAT(test::traced(), HasSubstr("Opened an incorrect shared memory buffer: eycatcher=   SOMEBODY ELSE"));
  memset(block->eyecatcher, 0, sizeof block->eyecatcher);
  EXPECT_EQ(field(5, 4), "five");
  EXPECT_EQ(block->ready, 1u);
}

TEST_F(Fields, AMapThatIsChangedUnderItsUsersIsReadNowhereOutside) {
  EXPECT_EQ(field(5, 4), "five");
  auto* const array = static_cast<xsim_entry*>(SIM_array[0]);
  array[4].offset = 0xFFFFFF00;
  EXPECT_EQ(field(5, 4), "?24");
  EXPECT_EQ(write(5, "five"), Codes(2, XSIM_NOT_INITIALIZED));
  pXsim_ptr->pass[0].field_count = INT32_MAX;
  EXPECT_EQ(field(3999, 4), "?23");
  // The id of another segment: who attaches now takes it for none of ours.
  pXsim_ptr->pass[1].loaded = 1;
  pXsim_ptr->pass[1].array_id = pXsim_ptr->pass[0].data_id;
  EXPECT_EQ(field(4000, 4), "quen");
}

class Loading : public testing::Test {
 protected:
  static Codes init() {
    uint32_t comprc = 0xDEAD;
    const int32_t sysrc = xsim_init(&comprc);
    return {sysrc, comprc};
  }
};

TEST_F(Loading, SaysWhatIsMissingAndStaysUnloaded) {
  unlink(test::config_path("ywkzsim.dat").c_str());
  EXPECT_EQ(init(), Codes(2, XSIM_NO_DATA_FILE));
  EXPECT_EQ(init(), Codes(0, 0xDEAD)) << "the header block is there now";
  test::MapFile().add(5, test::kData, "five").install();
  EXPECT_EQ(field(5, 4), "?21");
  EXPECT_EQ(write(5, "five"), Codes(2, XSIM_NOT_LOADED));
  EXPECT_EQ(codes(xsim_lock, 5), Codes(0, XSIM_NOT_LOADED));
}

TEST_F(Loading, FailuresOfTheFirstCallAreTheLoaders) {
  const auto refused = [](uint32_t code, auto arrange) {
    EXPECT_EQ(test::in_child([&] {
                unshare(CLONE_NEWIPC);
                test::MapFile().add(5, test::kPersistent, "five").install();
                arrange();
                return write(5, "four") == Codes(2, code) && field(5, 4) == "?21" ? 0 : 1;
              }),
              0)
        << code;
  };
  refused(XSIM_NO_DATA_FILE, [] { unlink(test::config_path("ywkzsim.dat").c_str()); });
  refused(XSIM_NO_PERMANENT_FILE, [] { unlink(test::config_path("ywkzspr.dat").c_str()); });
  refused(XSIM_READ_FAILED, [] { test::write_file(test::config_path("ywkzsim.dat"), "short"); });
  refused(XSIM_TOO_MANY_FIELDS, [] { test::MapFile().add(4094, test::kData, "").install(); });
  refused(XSIM_TOO_MUCH_DATA, [] { test::MapFile().add(99, test::kZero, "", 64525).install(); });
  refused(XSIM_NO_MEMORY, [] { failing_key = XSIM_KEY_TOLVANE_ARRAY; });
  refused(XSIM_NO_MEMORY, [] { failing_key = XSIM_KEY_TOLVANE_DATA; });
  failing_key = XSIM_KEY_HEADER;
  EXPECT_EQ(init(), Codes(ENOSPC, XSIM_NO_MEMORY));
  EXPECT_EQ(field(5, 4), "?21");
}

TEST_F(Loading, TheSecondArrayIsOptionalAndAFailureOfItLeavesTheFirst) {
  test::MapFile().add(5, test::kData, "five").install();
  test::MapFile().add(4000, test::kData, "q").install("kvdz");
  unlink(test::config_path("kvdzspr.dat").c_str());
  EXPECT_EQ(write(5, "four"), Codes(2, XSIM_NO_PERMANENT_FILE));
  EXPECT_EQ(write(5, "four"), kDone);
  EXPECT_EQ(field(4000, 1), "?21");
  EXPECT_EQ(xsim_uninit(), 0);
  EXPECT_EQ(field(5, 4), "?21");
}

TEST_F(Loading, ManyThreadsOfTheFirstProcessAllFindTheMap) {
  test::MapFile().add(5, test::kData, "five").add(2000, test::kData, "2000").install();
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i)
    threads.emplace_back([] {
      for (int n = 0; n < 50; ++n) EXPECT_EQ(field(5, 4), "five");
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(test::in_child([] { return field(2000, 4) == "2000" ? 0 : 1; }), 0);
}

}  // namespace
