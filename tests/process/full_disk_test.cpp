// Real full and read-only file systems.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "support/files.h"
#include "support/log_calls.h"
#include "support/worker.h"
#include "xdfc.h"

using namespace test;

namespace {

void write_map(const char* path, const std::string& text) {
  std::ofstream(path) << text;
}

// In a mount name space of its own, so that nothing stays; without the right to make one, with a user name space beside
// it.
void enter_mount_namespace() {
  if (unshare(CLONE_NEWNS) != 0) {
    const std::string uid = std::to_string(getuid()), gid = std::to_string(getgid());
    ASSERT_EQ(unshare(CLONE_NEWUSER | CLONE_NEWNS), 0) << strerror(errno);
    write_map("/proc/self/setgroups", "deny");
    write_map("/proc/self/uid_map", "0 " + uid + " 1");
    write_map("/proc/self/gid_map", "0 " + gid + " 1");
  }
  ASSERT_EQ(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
}

class FullDisk : public testing::Test {
 protected:
  void SetUp() override {
    enter_mount_namespace();
    mkdir(data_path("").c_str(), 0755);
    ASSERT_EQ(mount("tmpfs", data_path("").c_str(), "tmpfs", 0, "size=64k"), 0) << strerror(errno);
  }
  void TearDown() override { umount(data_path("").c_str()); }

  // Leaves about this many pages of the file system free.
  void fill(int free_pages) {
    std::string filler = data_path("filler");
    std::ofstream(filler, std::ios::binary) << std::string(16 * 4096, 'f');
    ASSERT_EQ(truncate(filler.c_str(), (16 - free_pages - used_pages()) * 4096), 0);
  }
  int used_pages() {
    struct stat status = {};
    return stat(data_path("wexolog.log").c_str(), &status) == 0 ? static_cast<int>((status.st_size + 4095) / 4096) : 0;
  }
};

TEST_F(FullDisk, RecordsUntilItIsFullAndLosesNothing) {
  size_t taken = 0;
  Result result = {};
  while (taken < 100 && (result = record({.blocks = {{0x10, noise(3000)}}})).sysrc == 0) ++taken;
  EXPECT_GT(taken, 10u);
  EXPECT_LT(taken, 30u);
  EXPECT_EQ(result.sysrc, 8);
  EXPECT_TRUE(result.comprc == XLOG_RECORD_HEADER_ERROR || result.comprc == XLOG_RECORD_BLOCK_ERROR) << result.comprc;
  EXPECT_EQ(check_log(data_path("wexolog.log")), 0);
  EXPECT_EQ(read_all().size(), taken + 1);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(record({.blocks = {{0x10, noise(3000)}}}).sysrc, 8);
  EXPECT_EQ(read_all().size(), taken + 1);
}

TEST_F(FullDisk, ALogGoesOnThoughNeitherItsCopyNorTheFinishedFileHasSpace) {
  write_file(console_path() + "wexoinit.trm", "9 x\n20 x\n9 x\n9 x\n0 x\n5 x\n2 x\n");
  for (const int spare_pages : {6, 1}) {  // beside the largest log
    for (uint16_t i = 0; i < 40; ++i) {
      ASSERT_EQ(record({.user = i, .blocks = {{0x10, noise(3000)}}}), std::make_pair(0, 0u)) << i;
      if (i == 9) fill(10 + spare_pages - used_pages());
    }
    EXPECT_EQ(check_log(data_path("wexolog.log")), 0);
    EXPECT_FALSE(exists(data_path("wexolog.log.new")) || exists(data_path("wexocom0.log.init")));
    auto logs = read_all();
    std::erase_if(logs, [](const ReadLog& log) { return log.eventid.classes != 0x33; });
    for (size_t i = 0; i < 5; ++i) EXPECT_EQ(logs[i].eventid.user, 39 - i);
  }
}

TEST_F(FullDisk, ANewLogIsMadeWholeOrNotAtAll) {
  fill(0);
  EXPECT_EQ(record({}).sysrc, 8);
  EXPECT_FALSE(exists(data_path("wexolog.log")));
  EXPECT_FALSE(exists(data_path("wexolog.log.init")));
  ASSERT_EQ(remove(data_path("filler").c_str()), 0);
  EXPECT_EQ(record({}).sysrc, 0);
}

TEST_F(FullDisk, ACopyIsReportedAsFailed) {
  const std::string source = console_path() + "source.dat";
  write_file(source, std::string(9000, 's'));
  fill(1);
  uint32_t comprc = 0;
  // No log has the room to take the hard error either; what counts is that the copy does not claim success.
  EXPECT_NE(xdfc_file_copy(("!" + source).c_str(), ("!" + data_path("copy.dat")).c_str(), 0, &comprc), 0);
  EXPECT_EQ(comprc, static_cast<uint32_t>(ENOSPC));
}

TEST_F(FullDisk, AReadOnlyMountIsReadButNotWritten) {
  ASSERT_EQ(record({.blocks = {{0x10, "before"}}}).sysrc, 0);
  ASSERT_EQ(mount(nullptr, data_path("").c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0) << strerror(errno);
  EXPECT_EQ(read_all().size(), 2u);
  const Result result = record({});
  EXPECT_EQ(result.sysrc, 8);
  EXPECT_EQ(result.comprc, XLOG_RECORD_HEADER_ERROR);
  EXPECT_EQ(record({.target = "new"}).comprc, XLOG_ERR_OPEN);
  EXPECT_EQ(read_all().size(), 2u);
}

}  // namespace
