// Logs changed in place: exactly the bytes that are meant, or none.
#include <gtest/gtest.h>

#include "support/files.h"
#include "support/log_calls.h"

using namespace test;

namespace {

class Update : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(record({}).sysrc, 0);  // makes the directory
    const std::vector<Block> blocks = {stored(5, "abc"), raw(0, std::string(20, '-')), raw(0, "second")};
    old = file.add({.eventid = {7, 1, 100}, .timestamp = {50, 99}, .blocks = blocks});
    plain = file.add({.eventid = {7, 1, 101}, .blocks = {stored(0x10, "no modify block")}});
    file.add({.eventid = {7, 2, 100}, .timestamp = {50, 99}, .blocks = {raw(0, "--")}});
  }
  void save() { write_file(path, before = file.bytes()); }
  xlog_event_identity of(uint32_t offset) { return {file.info(offset).eventid, file.info(offset).timestamp}; }
  void changes(Codes codes, size_t offset, const std::string& bytes) {
    EXPECT_EQ(codes, Codes(0, 0));
    EXPECT_EQ(read_file(path), before.replace(offset, bytes.size(), bytes));
    save();
  }
  // What the three say, each of a file as it is now.
  void expect(const xlog_event_identity& log, Codes update, Codes type, Codes mark) {
    save();
    EXPECT_EQ(update_log(log, "x"), update);
    save();
    EXPECT_EQ(update_type(log, 9), type);
    save();
    EXPECT_EQ(mark_for_delete(log), mark);
  }

  const std::string path = data_path("wexolog.log");
  LogFile file;
  std::string before;
  uint32_t old, plain;
};

TEST_F(Update, ChangesWhatIsMeantAndNothingElse) {
  save();
  const size_t block = old + sizeof(xlog_log_info) + 3 * 3 + 4;
  changes(update_log(of(old), "new data"), block, "new data");
  changes(update_log(of(old), std::string(30, 'L')), block, std::string(30, 'L'));  // longer: over the second, and on
  changes(update_type(of(old), 0xEE), old + 5, "\xEE");
  changes(mark_for_delete(of(plain)), plain + 25, "\xFF\xFF");
  EXPECT_EQ(mark_for_delete(of(plain)), Codes(0, 0));
  EXPECT_EQ(mark_for_delete(of(plain)), Codes(0, 0)) << "a second time";
  EXPECT_EQ(read_all().size(), 3u);
  expect({{7, 1, 100}, {50, 98}}, {0, 8}, {0, 8}, {0, 8});
  expect({{9, 1, 1}, {}}, {0, 8}, {0, 8}, {0, 8});
  expect(of(plain), {0, XLOG_UPDATE_NO_MODIFY_BLOCK}, {0, 0}, {0, 0});
}

}  // namespace
