// What leaves a record besides the log: the report to problem analysis, its crash files, and the copy to the system
// log. Java and the system information map are doubles of this program.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdarg.h>
#include <sys/time.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <thread>

#include "support/codes.h"
#include "support/doubles.h"
#include "support/files.h"
#include "support/log_calls.h"
#include "xnb.h"

using namespace test;
using testing::ElementsAre;

namespace {

std::map<uint32_t, std::string> fields = {{91, "\1"}};
int32_t read_result;
bool fail_write, fail_close;
std::vector<std::string> calls, system_log;
size_t made, failing;    // the call of the bridge with this number (from 1) fails; 0: none
bool more_to_fetch;      // the status of "I" calls comes through a buffer
int32_t status, living;  // references and texts not released
char names[][3] = {"#1", "#2", "#3", "#4", "#5", "#6"}, words[] = "Fan 3 at 100 % %s.";

bool lock_is_free() {
  bool free = false;
  std::thread([&] {
    uint32_t code;
    free = xlog_access_sem(XLOG_SEM_LOCK, &code) == 0 && xlog_access_sem(XLOG_SEM_UNLOCK, &code) == 0;
  }).join();
  return free;
}

// The thread would wait for ever if the call came under the lock; the guard is there only then, too.
int32_t called(const std::string& call) {
  EXPECT_EQ(xlog_sig_flag, 0u) << call;
  EXPECT_TRUE(lock_is_free()) << call;
  calls.push_back(call);
  return calls.size() == failing ? 0x1A004 : 0;
}

template <class Result>
int32_t make(int32_t result, Result* place, Result value) {
  if (place && result == 0) *place = value, ++living;
  return result;
}

std::string shown(const char* signature, va_list arguments) {
  std::string text;
  for (; *signature; signature = *signature == 'L' ? strchr(signature, ';') + 1 : signature + 1) {
    const char* object = *signature == 'L' ? va_arg(arguments, char*) : nullptr;
    text += *signature == 'L'   ? (object ? object : "null")
            : *signature == 'J' ? std::to_string(va_arg(arguments, int64_t))
                                : std::to_string(va_arg(arguments, int));
    text += ' ';
  }
  return text;
}

// Doubles: one that answers with an expression, and one of a call with arguments, as "target.method values".
#define DOUBLE(type, name, parameters, answer) \
  type name parameters {                       \
    return answer;                             \
  }
#define CALL_DOUBLE(name, parameters, target, method, last, out)                                 \
  int32_t name parameters {                                                                      \
    va_list arguments;                                                                           \
    va_start(arguments, last);                                                                   \
    const std::string call = static_cast<const char*>(target) + std::string(".") + method + " "; \
    const int32_t result = called(call + shown(signature, arguments));                           \
    va_end(arguments);                                                                           \
    return make<xnb_object>(result, out, names[out ? made++ % 6 : 0]);                           \
  }

}  // namespace

extern "C" {

DOUBLE(int32_t, xnbSaveStatus, (int32_t result), (status = result, more_to_fetch));
DOUBLE(int32_t, xnbGetLastStatus, (), more_to_fetch ? -1 : status);
DOUBLE(uint32_t, xnbGetAllocaLen, (), 1001);
DOUBLE(int32_t, xnbUnloadAlloca, (void* buffer),
       reinterpret_cast<uintptr_t>(buffer) % 16 ? -1 : (memset(buffer, 0xEE, 1008), status));
DOUBLE(int32_t, xnbCreateNamedStringFromUTF8, (const char* name, const char* text, uint32_t length),
       make(called(name + ("=" + std::string(text, length))), &status, 0));
DOUBLE(int32_t, xnbGetStringAsUTF8, (xnb_object string, char** text, uint32_t*),
       make(called(std::string("utf8 ") + static_cast<char*>(string)), text, +words));
DOUBLE(int32_t, xnbReleaseString, (char*), (--living, 0));
DOUBLE(int32_t, xnbReleaseObjectReference, (xnb_object), (--living, 0));
DOUBLE(int32_t, xnbCreateArrayI, (const char* type, uint32_t length, xnb_object* array),
       make<xnb_object>(called(type + std::to_string(length)), array, names[made++ % 6]));
DOUBLE(int32_t, xnbSetByteArrayElements, (xnb_object array, uint32_t, uint32_t count, const void* bytes),
       called(static_cast<char*>(array) + ("=" + std::string(static_cast<const char*>(bytes), count))));
CALL_DOUBLE(xnbInstantiateObjectI, (const char* target, const char* signature, xnb_object* out, ...), target, "new",
            out, out);
CALL_DOUBLE(xnbCallVoidMethod, (const char* method, const char* signature, xnb_object target, ...), target, method,
            target, nullptr);
CALL_DOUBLE(xnbCallObjectMethodI, (const char* method, const char* signature, xnb_object target, xnb_object* out, ...),
            target, method, out, out);
CALL_DOUBLE(xnbCallStaticVoidMethod, (const char* target, const char* method, const char* signature, ...), target,
            method, signature, nullptr);
DOUBLE(uint32_t, xsim_size, (uint32_t id), static_cast<uint32_t>(fields[id].size()));
DOUBLE(int32_t, xsim_read, (uint32_t id, void* buffer, uint32_t* comprc),
       (memcpy(buffer, fields[id].data(), fields[id].size()), *comprc = 54, read_result));
DOUBLE(void, openlog, (const char* ident, int options, int facility),
       system_log.push_back(ident + std::to_string(options) + std::to_string(facility)));
void syslog(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  system_log.push_back(std::to_string(priority) + format + va_arg(arguments, char*));
  va_end(arguments);
}
int gettimeofday(timeval* now, void*) noexcept {
  *now = {0x65A1B2C3, 990001};
  return 0;
}
DOUBLE(size_t, fwrite, (const void* bytes, size_t size, size_t count, FILE* stream),
       fail_write ? 0 : REAL(fwrite)(bytes, size, count, stream));
DOUBLE(int, fclose, (FILE * stream), REAL(fclose)(stream) | (fail_close ? EOF : 0));
}

namespace {

constexpr std::pair<int, uint32_t> kDone = {0, 0};
constexpr xlog_event_identity kEvent = {{0x41, 0x42, 0x4443}, {0x48474645, 0x49}};
const std::string kTold = "com.zanth.vemra.xfw.pa.util.LogListener.handle 65 66 17475 1212630597730 ";
const Event kSystemEvent = {.classes = 0,
                            .name = "twelve bytes",
                            .blocks = {{XLOG_UTCOFFSET_BLOCK_ID, "u"}, {0xF1, "count"}, {0xF4, "r"}, {3, ""}}};

std::string crash(const char* name = "") {
  return data_path("pa/crash/") + name;
}

std::vector<std::string> crash_files() {
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(crash()))
    files.push_back(entry.path().filename().string() + "=" + read_file(entry.path()));
  std::sort(files.begin(), files.end());
  return files;
}

Codes request(const xlog_event_identity& event = kEvent) {
  uint32_t comprc = 0xDEAD;
  return {xp11_request(&comprc, 100, &event, 0, 1, 2), comprc};
}

Codes critical(uint32_t return_code) {
  uint32_t comprc = 0xDEAD;
  return {xp11_critical(&comprc, &kEvent, 160, 50, 284, return_code), comprc};
}

struct Analysis : testing::Test {
  Analysis() { std::filesystem::create_directory(data_path("")); }
};

TEST_F(Analysis, IsToldOfARecordedEventWhenItWantsToBe) {
  EXPECT_TRUE(record(kSystemEvent) == kDone);
  write_file(data_path("SyslogSystemEvents"), "");  // too late: whether to copy is decided at the first system event
  fields[5] = "\2\3\4";
  EXPECT_TRUE(record(kSystemEvent) == kDone);
  EXPECT_EQ(xlog_qrlse, 0x0302);
  xlog_data_node node = {4, XLOG_ERROR_BLOCK_ID, "abcd", reinterpret_cast<xlog_data_node*>(0x10)};
  xlog_log_request chain = {0, kEvent.eventid, kEvent.timestamp, {}, {}, &node};
  EXPECT_EQ(codes(xlog_report_error, &chain), Codes(0, 0));
  node.block_id = 1;
  EXPECT_EQ(codes(xlog_report_error, &chain), Codes(0, 0)) << "the event counts, not its chain";
  ASSERT_TRUE(record({.classes = 0x0A, .type = 0x15, .flags = XLOG_PROBLEM_ANALYSIS_FLAG}) == kDone);
  ASSERT_TRUE(record({}) == kDone);
  EXPECT_THAT(calls, ElementsAre(kTold, kTold, testing::HasSubstr(".handle 228 21 2 1705095875990 ")));
  EXPECT_EQ(request({{0x0A, 0x15, 1}, {}}), Codes(0, 0));
  for (const std::string& value : {std::string("\0\1", 2), std::string("\2"), std::string("\1\7")}) {
    EXPECT_EQ(calls.size(), 3u);
    fields[91] = value;
    EXPECT_EQ(request(), Codes(0, 0));
  }
  EXPECT_EQ(calls.size(), 4u) << "the low byte counts";
  EXPECT_FALSE(exists(crash()));
}

TEST_F(Analysis, KeepsWhatItCannotTell) {
  write_file(console_path() + "ywkddfc.trm", "*.trm */\n*.log */data/\n");  // where to, it does not say
  fields.clear();
  EXPECT_EQ(request(), Codes(8, 284));
  fields[91] = std::string(257, '\1');
  EXPECT_EQ(request(), Codes(8, 284));
  fields[91] = "\1";
  failing = 1;
  EXPECT_EQ(request(), Codes(8, 284));
  // The same hundredth of a second: the second file takes the next one, which is of the next second.
  EXPECT_THAT(crash_files(), ElementsAre("crash.jvm..00000002.65A1B2C363=A||B||CD||EFGH||I",
                                         "crash.jvm..00000002.65A1B2C400=A||B||CD||EFGH||I",
                                         "crash.jvm..0000a004.65A1B2C363=A||B||CD||EFGH||I"));
  read_result = 2;
  EXPECT_TRUE(record({.flags = XLOG_PROBLEM_ANALYSIS_FLAG}) == kDone) << "the event is in the log";
  EXPECT_EQ(crash_files().size(), 4u);
  setenv("CONSOLE_PATH", std::string(5000, 'x').c_str(), 1);
  EXPECT_EQ(critical(7), Codes(2, XP11_CRASH_DIRECTORY));
}

TEST_F(Analysis, WaitsForTheReleaseOfTheLock) {
  write_file(data_path("SyslogSystemEvents"), "");
  uint32_t code;
  for (int level = 0; level < 2; ++level) ASSERT_EQ(xlog_access_sem(XLOG_SEM_LOCK, &code), 0);
  EXPECT_TRUE(record(Event{.classes = 0, .flags = XLOG_PROBLEM_ANALYSIS_FLAG, .blocks = {{9, "gone"}}}) == kDone);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(request(), i < 6 ? Codes(0, 0) : Codes(8, 284)) << i;
  EXPECT_TRUE(record({.classes = 0}) == kDone) << "there is no place for its copy";
  ASSERT_EQ(xlog_access_sem(XLOG_SEM_UNLOCK, &code), 0);
  EXPECT_TRUE(calls.empty());
  ASSERT_EQ(xlog_access_sem(XLOG_SEM_UNLOCK, &code), 0);
  EXPECT_THAT(calls, testing::Contains("#2=gone"));
  EXPECT_EQ(std::count(calls.begin(), calls.end(), kTold), 6);
  EXPECT_EQ(system_log.size(), 2u);
  EXPECT_EQ(crash_files().size(), 2u) << "what finds no place to wait is kept";
}

TEST_F(Analysis, CrashFileFailures) {
  EXPECT_EQ(critical(0), Codes(0, 0));
  ASSERT_EQ(symlink(std::filesystem::absolute("victim").c_str(), crash("crash.jvm..00000001.65A1B2C363").c_str()), 0);
  EXPECT_TRUE(critical(1) == Codes(0, 0) && !exists("victim")) << "a link is not followed";
  fail_write = true;
  EXPECT_EQ(critical(2), Codes(2, XP11_CRASH_WRITE));
  fail_write = false;
  EXPECT_FALSE(exists(crash("crash.jvm..00000002.65A1B2C363"))) << "half an event";
  fail_close = true;
  EXPECT_EQ(critical(3), Codes(2, XP11_CRASH_CLOSE));
  EXPECT_EQ(read_file(crash("crash.jvm..00000003.65A1B2C363")).size(), sizeof(xlog_crash_file));
  std::filesystem::remove_all(crash());
  write_file(data_path("pa/crash"), "");
  EXPECT_EQ(critical(5), Codes(2, XP11_CRASH_CREATE));
  std::filesystem::remove_all(data_path(""));
  EXPECT_EQ(critical(5), Codes(2, XP11_CRASH_DIRECTORY));
}

TEST_F(Analysis, SystemEventIsCopiedToTheSystemLog) {
  write_file(data_path("SyslogSystemEvents"), "");
  for (const bool more : {false, true}) {
    more_to_fetch = more;
    calls.clear();
    ASSERT_TRUE(record(kSystemEvent) == kDone);
    EXPECT_THAT(
        calls,
        ElementsAre("EVENTNAME=twelve bytes", "com.zanth.vemra.fw.log.Log.new 0 1 2 EVENTNAME null null null null ",
                    "B5", "#2=count", "#1.add #2 241 null ", "B0", "#3=", "#1.add #3 3 null ",
                    "com.zanth.vemra.fw.log.EventLog.new #1 ", "#4.getEventText ", "#5.toString ", "utf8 #6"));
    EXPECT_EQ(living, 0);
  }
  EXPECT_THAT(system_log, ElementsAre("QRL08", std::string("14%s") + words, "QRL08", std::string("14%s") + words));
  for (failing = 1; failing <= 12; ++failing) {
    calls.clear();
    EXPECT_TRUE(record(kSystemEvent) == kDone);
    EXPECT_EQ(calls.size(), failing) << "a failed step is the last";
    EXPECT_EQ(living, 0) << failing;
  }
  EXPECT_EQ(system_log.size(), 4u);
  EXPECT_EQ(read_all().size(), 15u) << "all of them are in the file";
  calls.clear();
  xlog_data_node node = {4, 0x10, "data", reinterpret_cast<xlog_data_node*>(0x10)};
  xlog_log_request event = {0, {}, {}, {}, {}, &node};
  EXPECT_EQ(codes(xlog_record, &event), Codes(2, XLOG_RECORD_BAD_NODE));
  node.next = &node;
  EXPECT_EQ(codes(xlog_record, &event), Codes(2, XLOG_RECORD_TOO_MANY_BLOCKS));
  node = {4, XLOG_UTCOFFSET_BLOCK_ID, reinterpret_cast<void*>(0x10), nullptr};
  EXPECT_EQ(codes(xlog_record, &event), Codes(2, XLOG_RECORD_BAD_DATA));
  EXPECT_TRUE(calls.empty()) << "an unusable event is not copied";
}

}  // namespace
