// Listings when the system fails under them, and their lines to the byte. The directory calls and the allocator
// are this program's.
#include <dirent.h>
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "files/listing_line.h"
#include "files/long_line.h"
#include "frame/deferred.h"
#include "plovmemdebug.h"
#include "support/codes.h"
#include "support/doubles.h"
#include "support/files.h"
#include "support/trace_double.h"
#include "xdfc.h"

using namespace plov::files;
using test::Codes;
using test::codes;
using testing::Contains;
using testing::HasSubstr;

namespace {

struct {
  int getcwd, opendir, readdir;  // errno
  bool first_block, growth, vanishing;
} failing;
int resizes, scanned;  // of blocks; regular files "00000", ... that scandir yields of "fake", 0: what there is

}  // namespace

char* getcwd(char* buffer, size_t size) noexcept {
  errno = failing.getcwd;
  return failing.getcwd ? nullptr : REAL(getcwd)(buffer, size);
}

DIR* opendir(const char* path) {
  errno = failing.opendir;
  return failing.opendir ? nullptr : REAL(opendir)(path);
}

dirent* readdir(DIR* stream) {
  dirent* entry = REAL64(readdir)(stream);
  if (entry && failing.vanishing) unlink(entry->d_name);
  if (!entry) errno = failing.readdir;
  return entry;
}

int scandir(const char* path, dirent*** list, int (*filter)(const dirent*),
            int (*compare)(const dirent**, const dirent**)) {
  if (scanned == 0 || !strstr(path, "/fake")) return REAL64(scandir)(path, list, filter, compare);
  *list = static_cast<dirent**>(malloc(static_cast<size_t>(scanned) * sizeof(dirent*)));
  for (int i = 0; i < scanned; ++i) {
    dirent* entry = (*list)[i] = static_cast<dirent*>(calloc(1, sizeof(dirent)));
    entry->d_type = DT_REG;
    snprintf(entry->d_name, sizeof entry->d_name, "%05d", i);
  }
  return scanned;
}

void* plovmemdebug_realloc(void* block, size_t size, const char* file, int32_t line) {
  ++resizes;
  const bool fails = block ? failing.growth : failing.first_block;
  return fails ? nullptr : REAL(plovmemdebug_realloc)(block, size, file, line);
}

namespace {

char buffer[64];
uint32_t number;
char* reply;

TEST(ListingFailure, OfDirectoryCalls) {
  for (const char* name : {"a", "b"}) test::write_file(name, "");
  failing.getcwd = EACCES;
  EXPECT_EQ(codes(xdfc_list_file, "[ab]", "!list"), Codes(2, EACCES));
  EXPECT_EQ(codes(xdfc_list_file_mem, "[ab]", buffer, 64, &number), Codes(2, EACCES));
  EXPECT_EQ(codes(xdfc_count_files, &number, "[ab]"), Codes(2, XDFC_LIST_NO_WORKING_DIRECTORY));
  for (auto* emulation : {xdfc_emul_xrem_dir, xdfc_emul_ftp_nlst})
    EXPECT_EQ(codes(emulation, &reply, "[ab]"), Codes(2, XDFC_LIST_NO_WORKING_DIRECTORY));
  for (const char* tag : {"XDFCLF F", "XDFCCNTF", "XDFCXRMF", "XDFCNLSD"})
    EXPECT_THAT(traced(), Contains(std::string(tag) + ":    error 13 from getpwd()"));
  failing = {};
  trace_count = 0;
  failing.readdir = EIO;
  plov::frame::lock_taken();  // hard errors are traced, and recorded later
  EXPECT_EQ(codes(xdfc_list_file, "[ab]", "!list"), Codes(2, EIO));
  EXPECT_EQ(test::read_file("list").substr(0, 8), "2      \n") << "the count of a walk that failed";
  EXPECT_EQ(codes(xdfc_list_file_mem, "[ab]", buffer, 64, &number), Codes(8, EIO));
  EXPECT_EQ(number, 2u);
  EXPECT_THAT(traced(), Contains("XDFCHE F: HARDWARE ERROR! uErrorID=12, ulComprc=5"));
  EXPECT_EQ(codes(xdfc_count_files, &number, "[ab]"), Codes(2, XDFC_LIST_READ_FAILED));
  EXPECT_EQ(number, 0u);
  EXPECT_THAT(traced(), Contains("XDFCCNTF:    count reset to 0 from 2 because of error"));
  failing.opendir = EIO;
  EXPECT_EQ(codes(xdfc_list_file_mem, "[ab]", buffer, 64, &number), Codes(8, EIO));
  EXPECT_THAT(traced(), Contains("XDFCHE F: HARDWARE ERROR! uErrorID=15, ulComprc=5"));
}

TEST(ListingFailure, VanishedFileKeepsItsLine) {
  mkdir("fake", 0755);
  for (const char* name : {"a", "b", "fake/00000"}) test::write_file(name, "");
  failing.vanishing = true;
  EXPECT_EQ(codes(xdfc_list_file, "[ab]", "!list"), Codes(0, 0));
  EXPECT_THAT(test::read_file("list"), HasSubstr("a" + std::string(76, ' ') + "\n"));
  EXPECT_THAT(traced(), Contains("XDFCLFMF: open error in list_file for [a],errno is 2"));
  scanned = 2;
  EXPECT_EQ(codes(xdfc_emul_xrem_dir, &reply, "fake"), Codes(2, XDFC_LIST_STAT_FAILED));
  EXPECT_THAT(reply, HasSubstr(" 00000\n")) << "what there was until then";
  plovmemdebug_free(reply, __FILE__, __LINE__);
}

TEST(ListingFailure, RepliesGrowInProportionAndKeepWhatTheyHave) {
  mkdir("fake", 0755);
  scanned = 100000;
  ASSERT_EQ(codes(xdfc_emul_ftp_nlst, &reply, "fake"), Codes(0, 0));
  EXPECT_STREQ(reply + 599994, "99999\n");
  EXPECT_LT(resizes, 20);
  plovmemdebug_free(reply, __FILE__, __LINE__);
  failing.growth = true;
  EXPECT_EQ(codes(xdfc_emul_ftp_nlst, &reply, "fake"), Codes(2, XDFC_LIST_GROW_FAILED));
  EXPECT_EQ(std::string(reply).substr(0, 12), "00000\n00001\n");
  plovmemdebug_free(reply, __FILE__, __LINE__);
  failing.first_block = true;
  EXPECT_EQ(codes(xdfc_emul_ftp_nlst, &reply, "fake"), Codes(2, XDFC_LIST_NO_MEMORY));
  EXPECT_EQ(reply, nullptr);
}

struct stat status_of(mode_t mode, off_t size, time_t time) {
  setenv("TZ", "UTC", 1);
  tzset();
  struct stat status = {};
  status.st_mode = mode, status.st_size = size;
  status.st_ctime = status.st_mtime = time;
  return status;
}

std::string listed(const char* name, const struct stat* status) {
  ListingLine line;
  xdfc_fill_data_struct(line, name, status);
  return {reinterpret_cast<const char*>(&line), sizeof line};
}

constexpr time_t kDay = 1764547200;  // 2025-12-01 00:00 UTC

TEST(ListingLine, HasItsColumns) {
  const struct {
    off_t size;
    time_t time;
    const char* columns;
  } cases[] = {
      {0, kDay + 5 * 60, "         0  12-01-25   0:05a"},
      {1234567890, kDay + 12 * 3600 + 30 * 60, "1234567890  12-01-25  12:30p"},
      {91234567890, kDay + 13 * 3600 + 7 * 60, "1234567890  12-01-25   1:07p"},
      {1, 1234000000, "         1  02-07-09   9:46a"},
  };
  for (const auto& c : cases) {
    const struct stat status = status_of(0, c.size, c.time);
    EXPECT_EQ(listed("a b\nc", &status), "a b\nc" + std::string(44, ' ') + c.columns + "\n");
  }
  EXPECT_EQ(listed(std::string(60, 'n').c_str(), nullptr), std::string(49, 'n') + std::string(28, ' ') + "\n");
  EXPECT_EQ(std::string_view(count_line(12345678).number, 8), "1234567\n");
}

std::string long_line(const struct stat& status, const char* name, const char* target = nullptr) {
  char line[kLongLineSize];
  return {line, format_long_line(line, status, name, target, 2025)};
}

TEST(LongLine, HasItsColumns) {
  const std::pair<mode_t, const char*> modes[] = {{S_IFREG | 0754, "-rwxr-xr--"},  {S_IFDIR | 01777, "drwxrwxrwx"},
                                                  {S_IFLNK | 0321, "l-wx-w---x"},  {S_IFBLK | 0600, "crw-------"},
                                                  {S_IFCHR | 0006, "c------rw-"},  {S_IFIFO, "p---------"},
                                                  {S_IFSOCK | 04000, "s---------"}};
  for (const auto& [mode, columns] : modes) {
    struct stat status = status_of(mode, 12, kDay + 5 * 60);
    status.st_nlink = 3, status.st_uid = 1000;
    EXPECT_EQ(long_line(status, "f"), std::string(columns) + "   3 1000     0              12 Dec  1 00:05 f\n");
  }
  EXPECT_EQ(long_line(status_of(S_IFREG, 5'000'000'000, 1234000000), "x"),
            "----------   0 0        0       5000000000 Feb  7  2009 x\n");
  // A target that fits is shown.
  const struct stat status = status_of(S_IFLNK, 0, 0);
  const std::string longest(4096 - 5 - 4 - 1, 't');
  EXPECT_THAT(long_line(status, "abcd", longest.c_str()), testing::EndsWith("1970 abcd -> " + longest + "\n"));
  EXPECT_THAT(long_line(status, "abcd", (longest + "t").c_str()), testing::EndsWith("1970 abcd\n"));
}

}  // namespace
