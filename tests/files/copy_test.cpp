// Copying, size and date.
#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>
#include <utime.h>

#include "support/codes.h"
#include "support/files.h"
#include "xdfc.h"

using test::Codes;
using test::codes;

namespace {

Codes copied(const std::string& source, const std::string& target, uint32_t flags) {
  return codes(xdfc_file_copy, source.c_str(), target.c_str(), flags);
}

constexpr time_t kLongAgo = 1000000000;

time_t changed(const char* path) {
  struct stat status = {};
  stat(path, &status);
  return status.st_mtime;
}

void write_old(const char* path, size_t size) {
  std::string bytes;
  for (size_t i = 0; i < size; ++i) bytes += static_cast<char>(i * 7);
  test::write_file(path, bytes);
  const utimbuf times = {kLongAgo, kLongAgo};
  utime(path, &times);
}

TEST(Copy, WholeFilesWithTheirTimes) {
  for (size_t size : {0, 1, 4095, 4096, 4097, 8192, 100000}) {
    write_old("s", size);
    EXPECT_EQ(copied("!s", "!t", size == 0 ? 0 : XDFC_E_REPLACE), Codes(0, 0));
    EXPECT_EQ(test::read_file("t"), test::read_file("s"));
    EXPECT_EQ(changed("t"), kLongAgo);
  }
}

TEST(Copy, FlagsProtectAnExistingTarget) {
  test::write_file("s", "new");
  const struct {
    uint32_t flags;
    Codes result;
    std::string target;
  } cases[] = {
      {0, {2, 22}, "old"},
      {XDFC_DE_CREAT, {2, 22}, "old"},
      {XDFC_E_OPEN, {0, 0}, "new"},
      {XDFC_E_REPLACE | XDFC_DE_CREAT, {0, 0}, "new"},
      {XDFC_E_APPEND | XDFC_E_REPLACE, {0, 0}, "oldnew"},
  };
  for (const auto& c : cases) {
    test::write_file("t", "old");
    EXPECT_EQ(copied("!s", "!t", c.flags), c.result) << c.flags;
    EXPECT_EQ(test::read_file("t"), c.target) << c.flags;
  }
  // No descriptor is left to look at the target with: it is protected all the same.
  rlimit usual;
  getrlimit(RLIMIT_NOFILE, &usual);
  const rlimit none = {3, usual.rlim_max};
  setrlimit(RLIMIT_NOFILE, &none);
  EXPECT_EQ(copied("!s", "!t", 0), Codes(2, 22));
  EXPECT_EQ(copied("!s", "!t", XDFC_E_OPEN), Codes(2, EMFILE));
  setrlimit(RLIMIT_NOFILE, &usual);
}

TEST(Copy, AFileIsNotCopiedOntoItself) {
  test::write_file("s", "precious");
  ASSERT_EQ(symlink("s", "soft"), 0);
  ASSERT_EQ(link("s", "hard"), 0);
  for (const char* target : {"!s", "!./s", "!soft", "!hard"})
    for (uint32_t flags : {XDFC_E_REPLACE, XDFC_E_APPEND}) EXPECT_EQ(copied("!s", target, flags), Codes(2, 22));
  EXPECT_EQ(test::read_file("s"), "precious");
}

TEST(Copy, FailuresAreSeenWhereverTheyShow) {
  mkdir("d", 0755);
  write_old("small", 100);
  write_old("large", 100000);
  EXPECT_EQ(copied("!none", "!t", 0), Codes(2, ENOENT));
  EXPECT_FALSE(test::exists("t"));
  EXPECT_EQ(copied("!small", "!d", XDFC_E_OPEN), Codes(2, EISDIR));
  EXPECT_EQ(copied("!d", "!t", 0), Codes(2, EISDIR));  // opens, but does not read
  EXPECT_EQ(copied("", "!t", 0), Codes(2, XDFC_BAD_LENGTH));
  EXPECT_EQ(copied("!small", std::string(513, 'a'), 0), Codes(2, XDFC_BAD_LENGTH));
  EXPECT_EQ(copied("not in the table", "!t", XDFC_E_OPEN), Codes(2, XDFC_NO_ENTRY));
  // The small file fails at the flush only, the large one at a block. What was written stays, with the source's times.
  signal(SIGXFSZ, SIG_IGN);
  const rlimit limit = {50, 50};
  setrlimit(RLIMIT_FSIZE, &limit);
  for (const std::string name : {"small", "large"}) {
    EXPECT_EQ(copied("!" + name, "!t" + name, 0), Codes(2, EFBIG));
    EXPECT_EQ(test::read_file("t" + name), test::read_file(name).substr(0, 50));
    EXPECT_EQ(changed(("t" + name).c_str()), kLongAgo);
  }
}

TEST(Attributes, SizeAndDateOfTheStatusChange) {
  setenv("TZ", "XYZ-3", 1);
  write_old("f", 1234);
  uint32_t size = 0;
  EXPECT_EQ(codes(xdfc_query_file_size, "!f", &size), Codes(0, 0));
  EXPECT_EQ(size, 1234u);

  struct stat status = {};
  ASSERT_EQ(stat("f", &status), 0);
  const time_t local = status.st_ctime + 3 * 3600;
  struct tm t = {};
  gmtime_r(&local, &t);
  const auto byte = [](int value) { return static_cast<uint8_t>(value); };
  const xdfc_file_date expected = {static_cast<uint16_t>(t.tm_year + 1900),
                                   byte(t.tm_mon + 1),
                                   byte(t.tm_mday),
                                   byte(t.tm_hour),
                                   byte(t.tm_min),
                                   byte(t.tm_sec),
                                   0};
  xdfc_file_date date;
  memset(&date, 0xEE, sizeof date);
  EXPECT_EQ(codes(xdfc_query_file_date, "!f", &date), Codes(0, 0));
  EXPECT_EQ(memcmp(&date, &expected, sizeof date), 0);

  EXPECT_EQ(codes(xdfc_query_file_size, "!none", &size), Codes(2, ENOENT));
  EXPECT_EQ(codes(xdfc_query_file_date, "!none", &date), Codes(2, ENOENT));
  ASSERT_EQ(mkfifo("fifo", 0600), 0);
  EXPECT_EQ(codes(xdfc_query_file_size, "!fifo", &size), Codes(0, 0));  // does not wait for a writer
}

}  // namespace
