// A frame's text.
#include <gtest/gtest.h>

#include <memory>

#include "log/backtrace.h"

namespace {

struct Text {
  char text[plov::log::kBacktraceSize];
};

TEST(Frame, ANameMadeReadableHasItsRestTwice) {
  const auto room = std::make_unique<Text>();
  size_t length = 0;
  const auto append = [&](const std::string& symbol) {
    return plov::log::append_frame(room->text, &length, symbol.c_str());
  };
  EXPECT_TRUE(append("lib.so(_ZN4plov3runEi+0x1a) [0x12]"));
  EXPECT_TRUE(append("lib.so(f+0x1a) [0x12]"));
  EXPECT_TRUE(append("a+b(no offset) [0x12]"));
  EXPECT_TRUE(append("lib.so(+0x1a) [0x12]"));
  EXPECT_STREQ(room->text,
               "at lib.so(plov::run(int)+0x1a) [0x12]+0x1a) [0x12]\nat lib.so(f+0x1a) [0x12]\n"
               "at a+b(no offset) [0x12]\nat lib.so(+0x1a) [0x12]");
  while (append(std::string(1000, 'x'))) {
  }
  EXPECT_GT(length, sizeof room->text - 1005);
  EXPECT_EQ(strlen(room->text), length);
}

}  // namespace
