// Every byte of every code page, both ways, beside the tables of the machine's iconv and the deviations one by one.
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/worker.h"
#include "xcsf.h"

namespace {

using Map = std::map<int, int>;

std::string every_byte() {
  std::string bytes(256, 0);
  for (size_t i = 0; i < 256; ++i) bytes[i] = static_cast<char>(i);
  return bytes;
}

// What the library makes of every byte.
std::vector<int> table(uint32_t page, int32_t direction) {
  const std::string in = every_byte();
  std::vector<uint8_t> out(256);
  uint32_t marks = 9999;
  const uint32_t given = page;
  EXPECT_EQ(xcsf_nls_cvtcode(out.data(), in.data(), 256, direction, &page, &marks), 0);
  EXPECT_EQ(page, given);
  EXPECT_EQ(marks, std::count(out.begin(), out.end(), 0xFF));
  return {out.begin(), out.end()};
}

// The characters of a code page by the program iconv, whose word size need not be ours; 0 for what is no graphic.
std::vector<int> published(const std::string& name) {
  test::write_file("bytes", every_byte());
  const std::string wide = test::Process("iconv -f " + name + " -t UTF-16LE bytes").rest();
  EXPECT_EQ(wide.size(), 512u) << name;
  std::vector<int> characters(256);
  for (size_t i = 0; i < 256 && wide.size() == 512; ++i) {
    const int c = static_cast<uint8_t>(wide[2 * i]) | static_cast<uint8_t>(wide[2 * i + 1]) << 8;
    characters[i] = c < 0x20 || (c >= 0x7F && c < 0xA0) ? 0 : c;
  }
  return characters;
}

std::vector<int> expected(const std::vector<int>& from, const std::vector<int>& to, const Map& deviations) {
  std::vector<int> table(256, 0xFF);
  for (size_t i = 0; i < 256; ++i)
    for (size_t k = 0; k < 256; ++k)
      if (from[i] != 0 && from[i] == to[k]) table[i] = static_cast<int>(k);
  for (const auto& [byte, result] : deviations) table[static_cast<size_t>(byte)] = result;
  return table;
}

TEST(CodePages, FollowThePublishedMappingsButForTheirDeviations) {
  const std::vector<int> host = published("IBM500");
  std::vector<int> ascii(256);
  for (int i = 0x20; i < 0x7F; ++i) ascii[static_cast<size_t>(i)] = i;
  const Map korea = {{0x41, 0x20}, {0x6A, 0xDF}, {0xB0, 0x80}, {0xBA, 0xFD}, {0xBC, 0x7E}, {0xCA, 0x2D}, {0xE0, 0xFE}};
  const Map korea_back = {{0xDF, 0x6A}, {0x80, 0xB0}, {0xFD, 0xBA}, {0x7E, 0xBC},
                          {0x2D, 0xCA}, {0xFE, 0xE0}, {0xC0, 0x40}, {0xFF, 0xA1}};
  const Map taiwan = {{0x41, 0x20}, {0x6A, 0xFE}, {0xB0, 0x80}, {0xBA, 0xFD}, {0xCA, 0x2D}};
  const Map taiwan_back = {{0xFE, 0x6A}, {0x80, 0xB0}, {0xFD, 0xBA}, {0x2D, 0xCA}};
  const struct {
    uint32_t page;
    std::vector<int> pc;
    Map deviations, back;
  } pages[] = {
      {437,
       published("IBM437"),
       {{0x41, 0x20}, {0xE1, 0x20}, {0xB4, 0x9F}, {0xB5, 0x15}, {0xB6, 0x14}},
       {{0x14, 0xB6}, {0x15, 0xB5}, {0x9F, 0xB4}, {0xA2, 0xC3}}},
      {850,
       published("IBM850"),
       {{0x41, 0x20}, {0xE1, 0x20}, {0xB4, 0x9F}, {0xB5, 0x15}, {0xB6, 0x14}, {0xBF, 0xF2}, {0xDA, 0xD5}},
       {{0x14, 0xB6}, {0x15, 0xB5}, {0x9F, 0xB4}, {0xF2, 0xBF}, {0xD5, 0xDA}}},
      {934, ascii, korea, korea_back},
      {944, ascii, korea, korea_back},
      {938, ascii, taiwan, taiwan_back},
      {948, ascii, taiwan, taiwan_back},
      {942,
       ascii,
       {{0x41, 0x20},
        {0x6A, 0xFE},
        {0xB0, 0x80},
        {0xB1, 0xA0},
        {0xB2, 0x5C},
        {0xB3, 0xA5},
        {0xBA, 0xFD},
        {0xBC, 0x7E},
        {0xCA, 0x2D},
        {0xE0, 0xFE}},
       {{0x80, 0xB0},
        {0xA0, 0xB1},
        {0x5C, 0xB2},
        {0xA5, 0xB3},
        {0xFD, 0xBA},
        {0x7E, 0xBC},
        {0x2D, 0xCA},
        {0xFE, 0xE0},
        {0x40, 0x6C},
        {0xFF, 0xA1}}},
  };
  for (const auto& p : pages) {
    EXPECT_EQ(table(p.page, XCSF_TO_PC), expected(host, p.pc, p.deviations)) << p.page;
    EXPECT_EQ(table(p.page, XCSF_TO_HOST), expected(p.pc, host, p.back)) << p.page;
    EXPECT_EQ(table(p.page, -7), table(p.page, XCSF_TO_HOST)) << "any direction but 0";
  }
}

TEST(CodePages, AnUnknownOneBecomes850) {
  for (uint32_t page : {1252u, 0u, 500u, 936u}) {
    uint8_t bytes[] = {0xC1, 0x0D, 0xBF, 0x77};
    uint32_t marks;
    EXPECT_EQ(xcsf_nls_cvtcode(bytes, bytes, 3, XCSF_TO_PC, &page, &marks), 0);
    EXPECT_EQ(page, 850u);
    EXPECT_EQ(marks, 1u) << "the control code";
    EXPECT_EQ(memcmp(bytes, "A\xFF\xF2\x77", 4), 0);
  }
}

// Counted in runs: lengths about their ends, all of them marks, and nothing written behind.
TEST(CodePages, EveryMarkOfALongTextIsCounted) {
  for (const int32_t count : {-1, 0, 1, 2, 255, 256, 257, 511, 512, 513, 100001}) {
    const size_t length = count < 0 ? 0 : static_cast<size_t>(count);
    std::string bytes(length + 1, 0x0D);
    uint32_t page = 437, marks = 7;
    EXPECT_EQ(xcsf_nls_cvtcode(bytes.data(), bytes.data(), count, XCSF_TO_PC, &page, &marks), 0);
    EXPECT_EQ(marks, length);
    EXPECT_EQ(bytes, std::string(length, '\xFF') + '\x0D');
  }
}

}  // namespace
