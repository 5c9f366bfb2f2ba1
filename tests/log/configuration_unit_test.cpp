// The configuration parser on plain text.
#include "log/configuration.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "plovmemdebug.h"

namespace {

const std::string kNumbers = "2560 a\n10240 b\n2561 c\n1024 d\n64 e\n100 f\n10 g\n";

// The class list as text: "class:first/second[type:first/second...]".
std::string classes_of(const std::string& lines) {
  const std::string text = kNumbers + lines;
  xlog_configuration configuration;
  EXPECT_EQ(plov::log::parse_configuration(text.data(), text.size(), true, &configuration), 0);
  std::string result;
  char part[64];
  for (xlog_class_record* record = configuration.class_list; record;) {
    snprintf(part, sizeof part, "%02X:%u/%u[", record->classes, record->first, record->second);
    result += part;
    for (xlog_type_record* type = record->types; type;) {
      snprintf(part, sizeof part, "%02X:%u/%u ", type->type, type->first, type->second);
      result += part;
      plovmemdebug_free(std::exchange(type, type->next), __FILE__, __LINE__);
    }
    result += "]";
    plovmemdebug_free(std::exchange(record, record->next), __FILE__, __LINE__);
  }
  return result;
}

std::vector<unsigned> numbers_of(const std::string& text) {
  xlog_configuration c;
  plov::log::parse_configuration(text.data(), text.size(), false, &c);
  EXPECT_EQ(c.class_list, nullptr);
  return {c.short_name_file_size, c.main_file_size,     c.e4_file_size,     c.max_single_log_size,
          c.modify_block_size,    c.default_keep_count, c.compressed_copies};
}

TEST(Configuration, SevenNumbersInTheirOrder) {
  EXPECT_EQ(numbers_of(kNumbers), (std::vector<unsigned>{2560, 10240, 2561, 1024, 64, 100, 10}));
}

TEST(Configuration, NumbersThatAreNone) {
  // Without a blank the number's text runs on into the next line, which is then used up.
  EXPECT_EQ(numbers_of("1\n2 x\n3 x\n"), (std::vector<unsigned>{1, 3, 0, 0, 0, 0, 0}));
  EXPECT_EQ(numbers_of("  7 x\nabc x\n65537 x\n1234567 x\n-5 x\n"),
            (std::vector<unsigned>{7, 0, 1, 123456 & 0xFFFF, 0, 0, 0}));
  EXPECT_EQ(numbers_of(""), (std::vector<unsigned>(7, 0)));
  EXPECT_EQ(numbers_of("12"), (std::vector<unsigned>{12, 0, 0, 0, 0, 0, 0}));
}

TEST(Configuration, ClassAndTypeLines) {
  EXPECT_EQ(classes_of("C 0A\n 3F 5 2\n"), "0A:100/0[3F:5/2 ]");
  EXPECT_EQ(classes_of("C0A\n * 7\n 01 1\n 02 2 3\nC  FF\n  *  8   1\n"), "0A:7/0[02:2/3 01:1/0 ]FF:8/1[]");
  EXPECT_EQ(classes_of("* a comment\nany line\nC 11\n* between\n 22 1\n"), "11:100/0[22:1/0 ]");
}

TEST(Configuration, ClassLinesThatAreNone) {
  EXPECT_EQ(classes_of(" 3F 5 2\n * 9\n"), "") << "no class came before";
  EXPECT_EQ(classes_of("C 0a\nC 1\nC 111\nC 11 x\nC 11 \nC\n"), "");
  EXPECT_EQ(classes_of("C 11\nC zz\n * 9\n"), "11:100/0[]") << "the lines of a class that is none belong to nobody";
  EXPECT_EQ(classes_of("C 11\n 3f 5\n 3F\n 3F x\n *\n * x\n *1\n 3F5 2\n 012 5\n"), "11:100/0[]");
  EXPECT_EQ(classes_of("C 11\n * 1234567 1\n"), "11:54919/1[]") << "one number, not two";
}

TEST(Configuration, EndsWhereTheTextEnds) {
  EXPECT_EQ(classes_of("C 11\r\n * 9"), "11:9/0[]");
  EXPECT_EQ(classes_of("C 11"), "11:100/0[]");
  EXPECT_EQ(classes_of("C 1"), "");
  EXPECT_EQ(classes_of("C"), "");
}

}  // namespace
