#include "files/path_table.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "files/decimal.h"
#include "xdfc.h"

using plov::files::parse_path_table;
using plov::files::TableEntry;
using plov::files::TableWalk;

namespace {

using Area = std::vector<unsigned char>;

// Parses a copy that ends where its memory ends.
size_t parse(const std::string& text, Area& area) {
  const auto exact = std::make_unique<char[]>(text.size());
  text.copy(exact.get(), text.size());
  return parse_path_table({exact.get(), text.size()}, "/b/", area);
}

// Each entry as "pattern>directory", a "+" behind it for the create flag.
std::vector<std::string> walk(const Area& area) {
  std::vector<std::string> found;
  TableEntry entry;
  for (TableWalk steps(area); steps.next(entry);)
    found.push_back(std::string(entry.pattern) + ">" + entry.directory + (entry.create_directory ? "+" : ""));
  return found;
}

std::string line(size_t entry_length) {
  return "p " + std::string(entry_length - 7, 'd') + "\n";
}

TEST(PathTable, LinesBecomeEntries) {
  using Entries = std::vector<std::string>;
  const struct {
    std::string text;
    Entries entries;
  } cases[] = {
      {"", {}},
      {"\r\n\x1A", {}},
      {"a /x/", {"a>/x/"}},
      {"a /x/\rb /y/\nc /z/\r\nd /w/\x1A", {"a>/x/", "b>/y/", "c>/z/", "d>/w/"}},
      {"\n\r\na /x/\r\n\x1A\r\n\nb /y/\x1A\x1A", {"a>/x/", "b>/y/"}},
      {"# a /x/ C\n#\na /x/\n#", {"a>/x/"}},
      {"a#b /x/", {"a#b>/x/"}},
      // options
      {"a /x/ C", {"a>/x/+"}},
      {"a /x/ sync\nb /y/", {"a>/x/+", "b>/y/"}},
      {"a /x/ xyz\nC /y/", {"a>/x/", "C>/y/"}},
      {"a /x/ \nb /y/", {"a>/x/", "b>/y/"}},
      {"a /x/  no way C\n", {"a>/x/+"}},
      // the base directory
      {"a */logs/", {"a>/b/logs/"}},
      {"a *", {"a>/b/"}},
      {"a **", {"a>/b/*"}},
      {"a */*/c", {"a>/b/*/c"}},
      {"a *x*/y*", {"a>/b/x/b/y/b/"}},
      {"*.l?g *;", {"*.l?g>/b/;"}},
      // odd lines
      {" /x/", {">/x/"}},
      {"a ", {"a>"}},
      {"a \nb /y/", {"a>", "b>/y/"}},
      {"no\nblank /x/", {"no\nblank>/x/"}},
      {"a /x/\nnone", {"a>/x/"}},
      {"none", {}},
  };
  for (const auto& c : cases) {
    Area area(1000, 0xEE);
    parse(c.text, area);
    EXPECT_EQ(walk(area), c.entries) << c.text;
  }
}

TEST(PathTable, EntryHasItsLayout) {
  Area area(20, 0xEE);
  EXPECT_EQ(parse("a* */ C\n", area), 11u);
  const Area expected = {11, 0, 1, 0, 'a', '*', 0, '/', 'b', '/', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(area, expected);
}

TEST(PathTable, LongEntriesBreakTheWalk) {
  const struct {
    size_t length;
    size_t entries;
  } cases[] = {{127, 2}, {128, 1}, {255, 1}, {256, 0}, {257, 1}};
  for (const auto& c : cases) {
    Area area(XDFC_TABLE_SIZE);
    EXPECT_EQ(parse(line(c.length) + "q /y/\n", area), 10u);
    EXPECT_EQ(walk(area).size(), c.entries) << c.length;
  }
}

TEST(PathTable, WhatDoesNotFitIsDropped) {
  std::string text;
  for (int i = 0; i < 2000; ++i) text += line(100);
  Area area(XDFC_TABLE_SIZE + 8, 0xEE);
  EXPECT_EQ(parse_path_table(text + "q /y/\n", "", {area.data(), XDFC_TABLE_SIZE}), 10u);
  const auto entries = walk({area.begin(), area.end() - 8});
  EXPECT_EQ(entries.size(), XDFC_TABLE_SIZE / 100);  // the last line would fit, but stands behind others that do not
  EXPECT_EQ(entries.back(), entries.front());
  for (size_t i = entries.size() * 100; i < XDFC_TABLE_SIZE; ++i) ASSERT_EQ(area[i], 0);
  for (size_t i = XDFC_TABLE_SIZE; i < area.size(); ++i) ASSERT_EQ(area[i], 0xEE);
}

TEST(Putldn, WritesItsDigitsOnly) {
  char field[] = "00aaaa";
  plov::files::putldn(field, 7, 2);
  EXPECT_STREQ(field, "07aaaa");
  plov::files::putldn(field, 123, 2);
  EXPECT_STREQ(field, "23aaaa");
  plov::files::putldn(field + 2, 0, 3);
  EXPECT_STREQ(field, "23aa0a");
  char all[11] = "..........";
  plov::files::putldn(all, 4294967295u, 10);
  EXPECT_STREQ(all, "4294967295");
}

}  // namespace
