#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <thread>
#include <vector>

#include "support/codes.h"
#include "support/files.h"
#include "support/pages.h"
#include "xdfc.h"
#include "xtr.h"

using test::Codes;
using test::codes;

namespace {

using Location = std::pair<Codes, std::string>;

constexpr Codes kFound(0, 0);

Location locate(const std::string& name) {
  char path[XDFC_PATH_SIZE] = "-";
  const Codes result = codes(xdfc_query_file_location, name.c_str(), path);
  return {result, path};
}

std::string here() {
  char path[1024];
  return std::string(getcwd(path, sizeof path)) + "/";
}

void table(const std::string& text) {
  test::write_file("ywkddfc.trm", text);
}

TEST(Location, FirstMatchingLineWins) {
  table("a*.log /first/\n*.log /second/\n[bB]?.dat */sub/\nlong " + std::string(600, 'd') + "\n");
  EXPECT_EQ(locate("ab.log"), Location(kFound, "/first/"));
  EXPECT_EQ(locate("b.log"), Location(kFound, "/second/"));
  EXPECT_EQ(locate("Bx.dat"), Location(kFound, here() + "sub/"));
  EXPECT_EQ(locate("AB.LOG"), Location({1, 2}, "-"));
  EXPECT_EQ(locate(std::string(251, 'x') + ".log").first, kFound);
  EXPECT_EQ(locate("long"), Location({2, ENAMETOOLONG}, "-"));
}

TEST(Location, BadArgumentsInTheirOrder) {
  test::Pages pages(1, PROT_READ);
  auto* const unwritable = reinterpret_cast<char*>(pages.begin());
  const std::string too_long(256, 'a');
  const char* const no_name = nullptr;
  EXPECT_EQ(xdfc_query_file_location(no_name, unwritable, nullptr), 1);
  EXPECT_EQ(codes(xdfc_query_file_location, no_name, unwritable), Codes(2, XDFC_BAD_ARGUMENT_1));
  EXPECT_EQ(codes(xdfc_query_file_location, "", unwritable), Codes(2, XDFC_BAD_LENGTH));
  EXPECT_EQ(codes(xdfc_query_file_location, too_long.c_str(), unwritable), Codes(2, XDFC_BAD_LENGTH));
  EXPECT_EQ(codes(xdfc_query_file_location, "a", unwritable), Codes(2, XDFC_BAD_ARGUMENT_2));
}

TEST(Location, TableIsLookedForHereThenInTheConsoleDirectoryUntilItLoads) {
  setenv("CONSOLE_PATH", "./etc/", 1);
  EXPECT_EQ(locate("a"), Location({2, ENOENT}, "-"));
  table("a " + std::string(XDFC_TABLE_SIZE, 'd'));
  EXPECT_EQ(locate("a"), Location({2, XDFC_TABLE_TOO_LARGE}, "-"));
  unlink("ywkddfc.trm");
  mkdir("ywkddfc.trm", 0755);
  EXPECT_EQ(locate("a"), Location({2, EISDIR}, "-"));
  rmdir("ywkddfc.trm");
  mkdir("etc", 0755);
  test::write_file("etc/ywkddfc.trm", "a *x/\n");
  EXPECT_EQ(locate("a"), Location(kFound, "./etc/x/"));
  table("a /new/\n");  // loaded once
  EXPECT_EQ(locate("a"), Location(kFound, "./etc/x/"));
}

TEST(Location, EmptyTableHasItsOwnResult) {
  table("");
  EXPECT_EQ(locate("a"), Location({2, 2}, "-"));
}

TEST(Location, FirstLookUpsOfManyThreadsLoadOneTable) {
  table("a /x/\n");
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) threads.emplace_back([] { EXPECT_EQ(locate("a"), Location(kFound, "/x/")); });
  for (auto& thread : threads) thread.join();
}

TEST(Location, CreatedDirectoryIsTheGroupsUnderAnyUmask) {
  table("a *new/ C\nb *none/deep/ C\n");
  umask(077);
  for (int round = 0; round < 2; ++round) EXPECT_EQ(locate("a"), Location(kFound, here() + "new/"));
  EXPECT_EQ(test::mode_of("new"), 02770u);
  EXPECT_EQ(locate("b"), Location(kFound, here() + "none/deep/"));
}

TEST(Location, SearchAlongPath) {
  table("tool /opt/x/;ignored\nbare /opt/x;\n");
  mkdir("bin", 0755);
  const std::string bin = here() + "bin";
  setenv("PATH", ("/nowhere:" + std::string(5000, 'p') + ":" + bin + ":/bin").c_str(), 1);
  EXPECT_EQ(locate("tool"), Location(kFound, "/opt/x/"));
  EXPECT_EQ(locate("bare"), Location(kFound, "/opt/x/"));
  test::write_file("bin/tool", "");
  EXPECT_EQ(locate("tool"), Location(kFound, bin + "/"));
  unsetenv("PATH");
  EXPECT_EQ(locate("tool"), Location(kFound, "/opt/x/"));
  setenv("PATH", "", 1);
  EXPECT_EQ(locate("tool"), Location(kFound, "/opt/x/;ignored"));
  // A "/" as second character is not cut at.
  test::write_file("tool", "");
  setenv("PATH", ".", 1);
  EXPECT_EQ(locate("tool"), Location(kFound, "./tool"));
}

TEST(Location, IsFoundByTheHolderOfTheProbesMutex) {
  ASSERT_EQ(pthread_mutex_lock(&xtr_mutex_sem), 0);
  EXPECT_EQ(locate("wexolog.log").first, kFound);
  ASSERT_EQ(pthread_mutex_unlock(&xtr_mutex_sem), 0);
}

TEST(FixPathCase, RepairsWhatIsOnDisk) {
  mkdir("Data", 0755);
  mkdir("Data/two", 0755);
  mkdir("Data/TWO", 0755);
  test::write_file("Data/Log.txt", "");
  const std::string root = here();
  const struct {
    std::string path;
    int32_t result;
    std::string repaired;
  } cases[] = {
      {"dATA/x*.log", 0, "Data/x*.log"},
      {"data/LOG.TXT", 0, "Data/Log.txt"},
      {"DATA", 0, "Data"},
      {"DATA/", 0, "Data/"},
      {"data/none.txt", 2, "data/none.txt"},
      {"none/x*", 2, "none/x*"},
      {"data/TwO", 0, "data/TwO"},      // both names: longer than the path
      {"data/TwO/x", 2, "data/TwO/x"},  // both names: nothing to list
      {"d?t?/x*", 0, "Data/x*"},
  };
  for (const auto& c : cases) {
    std::string path = root + c.path;
    EXPECT_EQ(xdfc_fixpathcase(path.data()), c.result) << c.path;
    EXPECT_EQ(path, root + c.repaired);
  }
  // A doubled "/" makes the repaired part shorter than what it replaces: the rest no longer joins.
  std::string doubled = root + "/data/x*";
  EXPECT_EQ(xdfc_fixpathcase(doubled.data()), 0);
  EXPECT_EQ(doubled, root + "Data//x*");
  char nothing[] = "", slash[] = "/";
  EXPECT_EQ(xdfc_fixpathcase(nothing), 0);
  EXPECT_EQ(xdfc_fixpathcase(reinterpret_cast<char*>(16)), 2);
  EXPECT_EQ(xdfc_fixpathcase(slash), 0);
}

}  // namespace
