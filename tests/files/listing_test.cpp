// The five listings of real directories.
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>

#include "plovmemdebug.h"
#include "support/codes.h"
#include "support/files.h"
#include "xdfc.h"

using test::Codes;
using test::codes;
using testing::MatchesRegex;
using testing::StartsWith;

namespace {

constexpr Codes kDone(0, 0);

using Replied = std::pair<Codes, std::string>;

Replied reply_of(int32_t (*emulation)(char**, const char*, uint32_t*), const std::string& pattern) {
  char* reply = reinterpret_cast<char*>(1);
  const Codes result = codes(emulation, &reply, pattern.c_str());
  const Replied replied = {result, reply ? reply : ""};
  plovmemdebug_free(reply, __FILE__, __LINE__);
  EXPECT_EQ(plovmemdebug_list(nullptr, nullptr), 0u);
  return replied;
}

// The long listing's first character and name of each line.
Replied dir(const std::string& pattern) {
  const Replied replied = reply_of(xdfc_emul_xrem_dir, pattern);
  std::istringstream reply(replied.second);
  std::string lines;
  for (std::string line; std::getline(reply, line);)
    lines += line.size() < 55 ? "total " : line.substr(0, 1) + ":" + line.substr(55) + " ";
  return {replied.first, lines};
}

Codes count(const std::string& pattern, uint32_t expected) {
  uint32_t number = 77;
  const Codes result = codes(xdfc_count_files, &number, pattern.c_str());
  EXPECT_EQ(number, expected) << pattern;
  return result;
}

// D: "a 1.txt", "B.TXT", ".hidden", a link to a file, to a directory and to nowhere, a FIFO, a directory.
struct Listing : testing::Test {
  void SetUp() override {
    EXPECT_EQ(mkdir("D", 0755) | mkdir("D/sub", 0755) | mkfifo("D/pipe", 0600), 0);
    EXPECT_EQ(symlink("B.TXT", "D/link.txt") | symlink("sub", "D/way") | symlink("none", "D/nowhere"), 0);
    for (const char* name : {"D/a 1.txt", "D/B.TXT", "D/.hidden"}) test::write_file(name, "12345");
  }
};

TEST_F(Listing, FileHoldsEveryEntryInTheDirectorysOrder) {
  test::write_file("list", "old");
  EXPECT_EQ(codes(xdfc_list_file, "D/q*", "!list"), Codes(2, XDFC_NO_ENTRY));
  EXPECT_EQ(test::read_file("list"), "old");
  ASSERT_EQ(codes(xdfc_list_file, "D/*", "!list"), kDone);
  EXPECT_EQ(test::read_file("list").size(), 8 + 78 * 10u) << "with . and ..";
  ASSERT_EQ(codes(xdfc_list_file, "D/[!.]*", "!list"), kDone);
  const std::string listing = test::read_file("list");
  EXPECT_EQ(listing.substr(0, 8), "7      \n");
  size_t at = 8;
  for (const auto& entry : std::filesystem::directory_iterator("D")) {
    const std::string name = entry.path().filename();
    if (name[0] == '.') continue;
    EXPECT_THAT(listing.substr(at, 78), MatchesRegex(name + (name == "nowhere" ? " *\n" : " +[0-9]+  .*[0-9][ap]\n")));
    at += 78;
  }
  EXPECT_EQ(at, listing.size());
  EXPECT_EQ(codes(xdfc_list_file, "none/*", "!list"), Codes(2, ENOENT));
  EXPECT_EQ(codes(xdfc_list_file, "D/*", "not in the table"), Codes(2, XDFC_NO_ENTRY));
  EXPECT_EQ(codes(xdfc_list_file, "D/*", "!/dev/full"), Codes(2, ENOSPC)) << "at the end";
  for (int i = 0; i < 100; ++i) test::write_file("D/x" + std::to_string(i), "");
  EXPECT_EQ(codes(xdfc_list_file, "D/*", "!/dev/full"), Codes(2, ENOSPC)) << "on the way";
}

TEST_F(Listing, NamesArePackedUpToTheLastByte) {
  std::string packed(15, '-');  // "link.txt", "pipe"
  uint32_t number;
  ASSERT_EQ(codes(xdfc_list_file_mem, "D/*i[np][ke]*", packed.data(), 14, &number), kDone);
  EXPECT_EQ(number, 2u);
  EXPECT_THAT(packed, testing::AnyOf(std::string("link.txt\0pipe\0-", 15), std::string("pipe\0link.txt\0-", 15)));
  EXPECT_EQ(codes(xdfc_list_file_mem, "D/*i[np][ke]*", packed.data(), 13, &number), Codes(2, XDFC_BUFFER_TOO_SMALL));
  EXPECT_EQ(number, 1u);
  EXPECT_EQ(codes(xdfc_list_file_mem, "D/none*", packed.data() + 14, 0, &number), kDone);
  EXPECT_EQ(packed[14], '-') << "a buffer of no bytes is left alone";
}

TEST_F(Listing, CountsRegularFiles) {
  EXPECT_EQ(count("D/[!n]*", 4), kDone);
  EXPECT_EQ(count("D/*", 0), Codes(2, XDFC_LIST_STAT_FAILED)) << "the link to nowhere";
  EXPECT_EQ(count("none/*", 0), Codes(2, XDFC_LIST_OPEN_FAILED));
}

TEST_F(Listing, LongListingOfADirectoryHasATotal) {
  const std::string all =
      "total -:.hidden -:B.TXT -:a 1.txt l:link.txt -> B.TXT l:nowhere -> none p:pipe d:sub l:way -> sub ";
  for (const char* pattern : {"D", "d", "D/", "d//", "D/*", "d/**", "./d", "D/sub/../"})
    EXPECT_EQ(dir(pattern), Replied(kDone, all)) << pattern;
  EXPECT_EQ(dir("D/Sub"), Replied(kDone, "total "));
  EXPECT_EQ(dir("d/*.txt"), Replied(kDone, "-:B.TXT -:a 1.txt l:link.txt -> B.TXT "));
  EXPECT_EQ(dir("d/b.txt"), Replied(kDone, "-:B.TXT "));
  EXPECT_EQ(dir("D/none"), Replied(kDone, ""));
  EXPECT_EQ(dir("none/").first, Codes(2, XDFC_LIST_NO_DIRECTORY));
  EXPECT_EQ(dir("none/*"), Replied({2, XDFC_LIST_NO_PATH}, ""));
  long blocks = 0;
  for (const auto& entry : std::filesystem::directory_iterator("D")) {
    struct stat status = {};
    lstat(entry.path().c_str(), &status);
    blocks += static_cast<long>(status.st_blocks);
  }
  EXPECT_THAT(reply_of(xdfc_emul_xrem_dir, "D").second, StartsWith("total " + std::to_string(blocks) + "\n"));
}

TEST_F(Listing, NameListHasRegularFilesOnly) {
  EXPECT_EQ(reply_of(xdfc_emul_ftp_nlst, "d"), Replied(kDone, ".hidden\nB.TXT\na 1.txt\n"));
  EXPECT_EQ(reply_of(xdfc_emul_ftp_nlst, "d/*"), Replied(kDone, "B.TXT\na 1.txt\n"));
  EXPECT_EQ(reply_of(xdfc_emul_ftp_nlst, "D/.h*"), Replied(kDone, ".hidden\n"));
  for (const char* pattern : {"D/sub", "D/l*", "D/none"})
    EXPECT_EQ(reply_of(xdfc_emul_ftp_nlst, pattern), Replied({2, XDFC_LIST_NOTHING}, "")) << pattern;
  // Wildcards in a directory's own name lead to no other.
  for (const char* directory : {"D/a[b]*", "D/ab"}) mkdir(directory, 0755);
  for (const char* file : {"D/a[b]*/right", "D/ab/wrong"}) test::write_file(file, "");
  for (const char* pattern : {"D/a[b]*/", "D/a[b]*"})
    EXPECT_EQ(reply_of(xdfc_emul_ftp_nlst, pattern), Replied(kDone, "right\n"));
}

TEST(ListingPattern, HasALengthForItsNameAndItsDirectory) {
  char directory[4096];
  const size_t own = strlen(getcwd(directory, sizeof directory)) + 1;
  const std::string longest(255 - own, 'd'), name(255, '?');
  EXPECT_EQ(codes(xdfc_list_file, (name + "?").c_str(), "!x"), Codes(2, XDFC_BAD_LENGTH));
  EXPECT_EQ(codes(xdfc_list_file, "", nullptr), Codes(2, XDFC_BAD_LENGTH));
  EXPECT_EQ(codes(xdfc_list_file, name.c_str(), "!x"), Codes(2, XDFC_NO_ENTRY));
  EXPECT_EQ(count(longest + "/*", 0), Codes(2, XDFC_LIST_OPEN_FAILED));
  EXPECT_EQ(count(longest + "d/*", 0), Codes(2, XDFC_BAD_LENGTH));
  EXPECT_EQ(dir("").first, Codes(2, XDFC_BAD_LENGTH));
  EXPECT_EQ(dir(std::string(4096, 'f')).first, Codes(2, ENAMETOOLONG));
  EXPECT_EQ(reply_of(xdfc_emul_ftp_nlst, "/" + std::string(256, 'd') + "/*").first, Codes(2, XDFC_BAD_LENGTH));
}

}  // namespace
