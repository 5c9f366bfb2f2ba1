// Numbers, hexadecimal text and ASCII to EBCDIC: what every caller may rely on, and the oddities that some do.
#include <gtest/gtest.h>
#include <string.h>

#include <string>

#include "xcsf.h"

namespace {

using namespace std::string_literals;

// What a function writes into a buffer that held '#'.
template <class Write>
std::string written(Write write, size_t size = 24) {
  std::string buffer(size, '#');
  write(buffer.data());
  return buffer;
}

std::string stripped_hex(uint32_t value, int32_t strip) {
  return written([&](char* text) { xcsf_long2char(text, value, strip); }).c_str();
}

TEST(NumberToText, WritesItsWidthAndANul) {
  EXPECT_EQ(written([](char* text) { xcsf_int2char(text, 0x12ABCDEF, 3); }, 9), "ABCDEF\0##"s);
  EXPECT_EQ(written([](char* text) { xcsf_int2char(text, 0x12ABCDEF, 5); }, 12), "0012ABCDEF\0#"s);
  EXPECT_EQ(written([](char* text) { xcsf_int2char(text, 1, 0); }, 2), "\0#"s);
  EXPECT_EQ(written([](char* text) { xcsf_far2char(text, 0x0BADF00D); }, 10), "0BADF00D\0#"s);
  EXPECT_EQ(written([](char* text) { xcsf_short2decchar(text, 65535, 0); }, 7), "65535\0#"s);
  EXPECT_EQ(written([](char* text) { xcsf_short2decchar(text, 42, 2); }, 7), "00042\0#"s);
  EXPECT_EQ(written([](char* text) { xcsf_long2decchar(text, 4294967295, 1); }, 12), "4294967295\0#"s);
}

TEST(NumberToText, StripsTheLastZeroInHexadecimalAlone) {
  EXPECT_EQ(stripped_hex(0xF0, 1), "F0");
  EXPECT_EQ(stripped_hex(0xF0, 0), "000000F0");
  EXPECT_EQ(stripped_hex(0, 1), "");
  EXPECT_STREQ(written([](char* text) { xcsf_short2decchar(text, 0, 1); }).c_str(), "0");
  EXPECT_STREQ(written([](char* text) { xcsf_long2decchar(text, 42, 1); }).c_str(), "42");
  // Ten bytes move at a time, and no more.
  std::string buffer = "xxxxxxxxxABCD";
  xcsf_long2char(buffer.data(), 0x01234567, 1);
  EXPECT_EQ(buffer, "1234567\0ABBCD"s);
}

TEST(TextToNumber, Hexadecimal) {
  const struct {
    std::string text;
    uint32_t result, value;
  } cases[] = {{"00FF", 0, 255},
               {" FF ", 0, 255},
               {"1 2", 0, 0x12},
               {"1\0002"s, 0, 0x12},
               {"aBcDeF09", 0, 0xABCDEF09},
               {"0#10", 2, 0},
               {"12,4", 3, 0x12},
               {"", 32, 0},
               {"123456789", 32, 0},
               {"G", 0, 16},
               {"1G", 0, 0x10 | 16},
               {"z", 0, 61 - 6},
               {"0x10", 0, (59 - 6) << 8 | 0x10}};
  for (const auto& c : cases)
    for (const auto convert : {xcsf_char2int, xcsf_char2long}) {
      uint32_t value = 77;
      EXPECT_EQ(convert(&value, c.text.data(), static_cast<uint32_t>(c.text.size())), c.result) << c.text;
      EXPECT_EQ(value, c.value) << c.text;
    }
}

TEST(TextToNumber, Decimal) {
  const struct {
    std::string text;
    uint32_t result, value;
  } cases[] = {
      {"0", 0, 0},  {"4294967295", 0, 4294967295}, {"4294967297", 0, 1}, {"12a", 3, 120}, {" 1", 1, 0}, {"1A2", 2, 100},
      {"", 32, 77}, {"12345678901", 32, 77}};
  for (const auto& c : cases) {
    uint32_t value = 77;
    EXPECT_EQ(xcsf_decchar2int(&value, c.text.data(), static_cast<uint32_t>(c.text.size())), c.result) << c.text;
    EXPECT_EQ(value, c.value) << c.text;
  }
}

TEST(Hex, BytesToText) {
  const uint8_t bytes[] = {0x09, 0xAF};
  std::string text(6, '#');
  EXPECT_EQ(xcsf_hex2char(text.data(), bytes, 2), text.data() + 4);
  EXPECT_EQ(text, "09AF\0#"s);
  EXPECT_EQ(xcsf_hex2ebcdic(text.data(), bytes, 2), text.data() + 4);
  EXPECT_EQ(text, "\xF0\xF9\xC1\xC6\0#"s);
  EXPECT_EQ(xcsf_unpack_hex(text.data(), bytes, 0, XCSF_ASCII), text.data());
  EXPECT_EQ(text[0], 0);
}

TEST(Hex, TextToBytes) {
  const auto packed = [](auto pack, std::string text, uint32_t result) {
    std::string bytes(text.size() / 2 + 2, '#');
    EXPECT_EQ(pack(bytes.data(), text.data(), static_cast<uint32_t>(text.size())), result) << text;
    return bytes;
  };
  EXPECT_EQ(packed(xcsf_char2hex, "ABC", 0), "\xAB\xC0#"s);
  EXPECT_EQ(packed(xcsf_char2hex, "09aFfA", 0), "\x09\xAF\xFA##"s);
  EXPECT_EQ(packed(xcsf_char2hex, "AG", 2), "\xA0##"s) << "the good half is written";
  EXPECT_EQ(packed(xcsf_char2hex, "12 4", 3), "\x12###"s);
  EXPECT_EQ(packed(xcsf_ebcdic2hex, "\xF0\xF9\x81\xC6", 0), "\x09\xAF##"s);
  EXPECT_EQ(packed(xcsf_ebcdic2hex, "A1", 1), "###"s);
  std::string same = "4A4b";
  EXPECT_EQ(xcsf_pack_hex(same.data(), same.data(), 4, XCSF_ASCII), 0u);
  EXPECT_EQ(same, "JK4b");
}

TEST(Translation, OfLettersAndDigitsStopsAtAnyOther) {
  std::string out(6, '#');
  EXPECT_EQ(xcsf_ascii2ebcdic(out.data(), "aZ09", 4), 0u);
  EXPECT_EQ(out, "\x81\xE9\xF0\xF9\0#"s);
  EXPECT_EQ(xcsf_ascii2ebcdic(out.data(), "ab c", 4), 3u);
  EXPECT_EQ(out, "\x81\x82\0\xF9\0#"s);
  EXPECT_EQ(xcsf_ebcdic2ascii(out.data(), "\xD1\xA2\x40", 3), 3u);
  EXPECT_EQ(out, "Js\0\xF9\0#"s);
  // Of a shorter row, or between equal ones.
  EXPECT_EQ(xcsf_convert_code(out.data(), "9fG", 3, XCSF_EBCDIC, XCSF_ASCII, 22), 3u);
  EXPECT_EQ(out.substr(0, 3), "\xF9\x86\0"s);
  EXPECT_EQ(xcsf_convert_code(out.data(), "9fG", 3, XCSF_ASCII, XCSF_ASCII, 10), 2u);
  EXPECT_STREQ(out.c_str(), "9");
}

// The whole of both tables, from the letters' three runs in EBCDIC.
TEST(Translation, ForDisplayHasAPlaceForEveryByte) {
  std::string ascii(256, '\x4B'), ebcdic(256, '.'), all(256, 0);
  for (int i = 0; i < 256; ++i) all[static_cast<size_t>(i)] = static_cast<char>(i);
  const auto pair = [&](int a, int e) {
    ascii[static_cast<size_t>(a)] = static_cast<char>(e);
    ebcdic[static_cast<size_t>(e)] = static_cast<char>(a);
  };
  for (int i = 0; i < 10; ++i) pair('0' + i, 0xF0 + i);
  for (int i = 0; i < 9; ++i) pair('A' + i, 0xC1 + i), pair('a' + i, 0x81 + i);
  for (int i = 0; i < 9; ++i) pair('J' + i, 0xD1 + i), pair('j' + i, 0x91 + i);
  for (int i = 0; i < 8; ++i) pair('S' + i, 0xE2 + i), pair('s' + i, 0xA2 + i);
  pair(' ', 0x40), pair('-', 0x60), pair('_', 0x6D);
  std::string out = all + "#";
  xcsf_da_ascii2ebcdic(out.data(), out.data(), 256);
  EXPECT_EQ(out, ascii + "#");
  xcsf_da_ebcdic2ascii(out.data(), all.data(), 256);
  EXPECT_EQ(out, ebcdic + "#");
}

}  // namespace
