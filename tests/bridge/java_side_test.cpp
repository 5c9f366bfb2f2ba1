// The library and the console's Java classes in one process: fields that Java keeps, events that Java is told of or
// makes a text of, a restart, a native function that Java calls.
#include <gtest/gtest.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>

#include <filesystem>

#include "support/codes.h"
#include "support/files.h"
#include "support/java_vm.h"
#include "support/log_calls.h"
#include "support/log_file.h"
#include "xbt.h"
#include "xsim.h"

using namespace test;

namespace {
std::string system_log;
std::vector<std::string> commands;
}  // namespace

// Nothing here may stop the machine.
int system(const char* command) {
  commands.push_back(command);
  return 0;
}

void syslog(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  system_log = std::to_string(priority) + " " + format + " " + va_arg(arguments, char*);
  va_end(arguments);
}

namespace {

using JavaSide = WithJavaVm;

std::string last_told() {
  xnb_object text = nullptr;
  EXPECT_EQ(xnbCallStaticObjectMethodI("com.zanth.vemra.xfw.pa.util.LogListener", "last", "", &text), 0);
  return text_of(text);
}

TEST_F(JavaSide, KeepsItsFields) {
  write_file(console_path() + "config/ywkzsfm.h", "# fields\n1500 c 8\n1501 c 300\n");
  EXPECT_EQ(codes(xsim_write, 1500u, static_cast<const void*>("8 bytes!"), 0u).first, 0);
  char value[9] = "";
  EXPECT_EQ(codes(xsim_read, 1500u, static_cast<void*>(value)).first, 0);
  EXPECT_STREQ(value, "8 bytes!");
  std::string large(300, 'x'), read(300, ' ');
  EXPECT_EQ(codes(xsim_write, 1501u, static_cast<const void*>(large.data()), 0u).first, 0);
  EXPECT_EQ(codes(xsim_read, 1501u, static_cast<void*>(read.data())).first, 0);
  EXPECT_EQ(read, large);
  write_file(console_path() + "config/ywkzsfm.h", "1500 c 4\n1502 c 4\n");
  memcpy(value, "........", 9);
  EXPECT_EQ(codes(xsim_read, 1500u, static_cast<void*>(value)).first, 0);
  EXPECT_STREQ(value, "8 by....") << "a longer array is cut to the field";
  EXPECT_EQ(codes(xsim_read, 1502u, static_cast<void*>(value)), Codes(2, XNB_BAD_REFERENCE)) << "Java has none";
  EXPECT_EQ(codes(xsim_read, 1503u, static_cast<void*>(value)), Codes(2, XSIM_UNKNOWN_FIELD));
}

TEST_F(JavaSide, IsToldOfEvents) {
  const Result told = record({.classes = 0x41, .type = 0xFE, .user = 0xFFFE, .flags = XLOG_PROBLEM_ANALYSIS_FLAG});
  ASSERT_EQ(told.sysrc, 0);
  const uint64_t milliseconds = told.timestamp.seconds * uint64_t{1000} + told.timestamp.hundredths * 10u;
  EXPECT_EQ(last_told(), "65 254 65534 " + std::to_string(milliseconds));
  EXPECT_FALSE(exists(data_path("pa/crash")));
  // The listener throws at this class: the event is in the log and in a crash file.
  EXPECT_EQ(record({.classes = 0x7F, .flags = XLOG_PROBLEM_ANALYSIS_FLAG}).sysrc, 0);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(data_path("pa/crash")), {}), 1);
  EXPECT_EQ(read_all().size(), 3u);
}

TEST_F(JavaSide, MakesTheTextOfASystemEvent) {
  std::filesystem::create_directories(data_path(""));
  write_file(data_path("SyslogSystemEvents"), "");
  ASSERT_EQ(
      record({.classes = 0, .type = 1, .user = 797, .name = "twelve bytes", .blocks = {{0xF1, "1234"}, {3, ""}}}).sysrc,
      0);
  EXPECT_EQ(system_log, std::to_string(LOG_USER | LOG_INFO) + " %s 0 1 797 twelve bytes -15=4 3=0");
}

// The class answers with the number that the message is, and throws at one that is none.
TEST_F(JavaSide, IsAskedForARestartFirst) {
  const auto restart = [](const char* message, uint32_t type) {
    uint32_t comprc = 0xDEAD;
    const int32_t sysrc = xbt_restart(&comprc, "test \u00FC", message, type);
    return Codes(sysrc, comprc);
  };
  EXPECT_EQ(restart("0", XBT_HALT), Codes(0, 0));
  EXPECT_EQ(restart("1", XBT_HALT), Codes(2, XBT_JAVA_ANSWERED_1));
  EXPECT_EQ(restart("2", XBT_HALT), Codes(2, XBT_JAVA_ANSWERED_2));
  EXPECT_TRUE(commands.empty());
  EXPECT_EQ(restart("7", XBT_REBOOT_2), Codes(8, XBT_BAD_ANSWER));
  EXPECT_EQ(restart("no number", XBT_POWER_OFF), Codes(8, XBT_CALL_FAILED));
  EXPECT_EQ(commands, (std::vector<std::string>{"reboot", "poweroff"}));
  EXPECT_EQ(read_all()[0].name.substr(0, 7), "RESTART") << "a failure is an event";
}

TEST_F(JavaSide, TrimsALog) {
  LogFile file;
  while (file.bytes().size() <= XLOG_TRIM_SIZE)
    file.add({.eventid = {2, 1, 0}, .blocks = {stored(0x10, std::string(60000, 'd'))}});
  std::filesystem::create_directories(data_path(""));
  write_file(data_path("wexolog.log"), file.bytes());
  const auto trim = [](const std::string& destination) {
    const xnb_object name = string_of("!" + destination);
    xnb_object answer = nullptr;
    EXPECT_EQ(xnbCallStaticObjectMethodI("plov.Calls", "trim", "Ljava.lang.String;", &answer, name), 0)
        << xnbGetLastErrorMessage();
    EXPECT_EQ(xnbReleaseObjectReference(name), 0);
    return text_of(answer);
  };
  const std::string destination = console_path() + "trimmed.log";
  EXPECT_EQ(trim(destination), "result 0");
  EXPECT_LE(read_file(destination).size(), XLOG_TRIM_SIZE);
  EXPECT_GT(read_file(destination).size(), XLOG_TRIM_SIZE - 70000);
  EXPECT_EQ(trim(console_path() + "no/directory"), "Error copying log file to destination 2 2 2");
}

}  // namespace
