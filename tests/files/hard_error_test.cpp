// Failing devices and file systems of any size: fopen, usleep, statfs, xlog_record and xtr_trace are this program's.
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "support/codes.h"
#include "support/doubles.h"
#include "support/trace_double.h"
#include "xdfc.h"
#include "xlog.h"

using test::Codes;
using test::codes;
using testing::Contains;
using testing::ElementsAre;

namespace {

int open_error, failures_left, attempts, sleeps;
struct statfs file_system;
int statfs_error;

struct Recorded {
  std::string request;  // up to its chain
  uint8_t block_id;
  std::string block;
};
std::vector<Recorded> records;

bool wanted(const char* path) {
  return strstr(path, "x.dat") || strstr(path, "x.log") || strstr(path, "/mnt/floppy/");
}

// Opens a file whose next `times` attempts fail.
Codes open_failing(const char* name, int error, int times) {
  open_error = error;
  failures_left = times;
  attempts = sleeps = 0;
  records.clear();
  trace_count = 0;
  FILE* stream = nullptr;
  const Codes result = codes(xdfc_search_file_open2, name, "r", &stream);
  EXPECT_EQ(stream != nullptr, result == Codes(0, 0));
  if (stream) fclose(stream);
  return result;
}

}  // namespace

FILE* fopen(const char* path, const char* mode) {
  if (wanted(path)) {
    ++attempts;
    if (failures_left > 0) {
      --failures_left;
      errno = open_error;
      return nullptr;
    }
    path = "/dev/null";
  }
  return REAL64(fopen)(path, mode);
}

int usleep(useconds_t microseconds) {
  EXPECT_EQ(microseconds, 1000u);
  ++sleeps;
  errno = 0;
  return 0;
}

int statfs(const char*, struct statfs* status) noexcept {
  *status = file_system;
  errno = statfs_error;
  return statfs_error == 0 ? 0 : -1;
}

int32_t xlog_record(xlog_log_request* request, uint32_t* comprc) {
  const xlog_data_node* node = request->data;
  EXPECT_EQ(node->next, nullptr);
  records.push_back({std::string(reinterpret_cast<const char*>(request), offsetof(xlog_log_request, data)),
                     node->block_id, std::string(static_cast<const char*>(node->data_ptr), node->data_size)});
  // The device fails again while its failure is being recorded.
  FILE* stream = nullptr;
  if (failures_left > 0) {
    EXPECT_EQ(codes(xdfc_search_file_open2, "!x.dat", "r", &stream), Codes(8, EIO));
  }
  return *comprc = 0;
}

namespace {

TEST(HardError, IsRecordedOnce) {
  for (const auto& [name, type] : {std::pair{"!x.dat", 10}, std::pair{"!/mnt/floppy/a", 11}}) {
    EXPECT_EQ(open_failing(name, EIO, 2), Codes(8, EIO));
    EXPECT_EQ(failures_left, 0);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].request, std::string({0, 3, 13, static_cast<char>(type), 1, 0, 0, 0, 0, 0, 0}) +
                                      "DFC Hard Err" + std::string(2049, '\0'));
    EXPECT_EQ(records[0].block_id, 0xF0);
    EXPECT_EQ(records[0].block, std::string({11, 0, EIO, 0, 0, 0}));
  }
}

TEST(HardError, OnlyDevicesFailAndALogFileNeverReportsItself) {
  for (uint32_t error : {EIO, ENXIO, ENODEV, EACCES, EMFILE, ENOENT, ENOSPC}) {
    const bool hard = error == EIO || error == ENXIO || error == ENODEV;
    EXPECT_EQ(open_failing("!x.dat", error, 1), Codes(hard ? 8 : 2, error));
    EXPECT_EQ(records.size(), hard ? 1u : 0u) << error;
    EXPECT_EQ(open_failing("!x.log", error, 1), Codes(2, error));
    EXPECT_EQ(records.size(), 0u);
  }
}

TEST(HardError, BusyFilesAreTriedThirtyTimes) {
  EXPECT_EQ(open_failing("!x.log", EBUSY, 29), Codes(0, 0));
  EXPECT_EQ(attempts, 30);
  EXPECT_EQ(sleeps, 29);
  EXPECT_EQ(open_failing("!x.log", EBUSY, 30), Codes(2, EBUSY));
  EXPECT_EQ(attempts, 30);
}

TEST(HardError, IsTracedToTheLetter) {
  open_failing("!/mnt/floppy/a", EIO, 1);
  EXPECT_THAT(
      traced(),
      ElementsAre("XDFCSFOT: -> xdfc_search_file_open2",
                  "XDFCSFOF: Opening file [/mnt/floppy/a], rc=5, file ptr=(nil), errno=5", "XDFCHE D: -> xdfc_hard_err",
                  "XDFCHE F: HARDWARE ERROR! uErrorID=11, ulComprc=5", "XDFCHE D: <- xdfc_hard_err",
                  "XDFCSFOF:    xdfc_search_file_open2: src= 0x8, crc= 0x5", "XDFCSFOT: <- xdfc_search_file_open2"));
}

TEST(DiskSpace, BytesAreCappedAndKilobytesAreNot) {
  const struct {
    uint64_t units;
    long unit_size;
    uint32_t bytes;
    int32_t kilobytes;
  } cases[] = {
      {0, 4096, 0, 0},
      {1000, 4096, 4096000, 4000},
      {3, 1536, 3072, 3},                     // a unit counts in whole kilobytes
      {0x80000, 4096, 0x80000000, 0x200000},  // the last that is multiplied
      {0x80001, 4096, 0x7FFFFFFF, 0x200004},
      {786432, 4096, 0x7FFFFFFF, 3145728},  // 3 GiB
      {1ull << 32, 4096, 0x7FFFFFFF, 0x7FFFFFFF},
      {5, 512, 2048, 2},
      {(1ull << 23) + 4, 512, 2048, 2},  // 32 bits
  };
  for (const auto& c : cases) {
    file_system.f_bfree = static_cast<decltype(file_system.f_bfree)>(c.units);
    file_system.f_bsize = static_cast<decltype(file_system.f_bsize)>(c.unit_size);
    uint32_t bytes = 77;
    int32_t kilobytes = 77;
    EXPECT_EQ(codes(xdfc_disk_space, "/any", &bytes), Codes(0, 0));
    EXPECT_EQ(bytes, c.bytes) << c.units << " " << c.unit_size;
    EXPECT_EQ(codes(xdfc_disk_space2, "/any", &kilobytes), Codes(0, 0));
    EXPECT_EQ(kilobytes, c.kilobytes) << c.units << " " << c.unit_size;
  }
}

TEST(DiskSpace, FailureIsAHardErrorWhereADeviceFails) {
  uint32_t bytes = 77;
  statfs_error = ENOENT;
  EXPECT_EQ(codes(xdfc_disk_space, "/mnt/floppy/x", &bytes), Codes(2, ENOENT));
  statfs_error = EIO;
  EXPECT_EQ(codes(xdfc_disk_space, "/mnt/floppy/x", &bytes), Codes(8, EIO));
  EXPECT_EQ(bytes, 77u);
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].request[3], 11);
  EXPECT_EQ(records[0].block, std::string({3, 0, EIO, 0, 0, 0}));
  EXPECT_THAT(traced(), Contains("XDFCQDSF: drive=/mnt/floppy/x, Byte free space=0, src=8, crc=5"));
}

}  // namespace
