// Restart with doubles of the Java side, of the microcode log, of the allocator and, always, of the shell.
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdarg.h>
#include <stdlib.h>
#include <sys/mman.h>

#include <regex>
#include <string>
#include <vector>

#include "restart/event.h"
#include "restart/lookup.h"
#include "support/pages.h"
#include "support/traced.h"
#include "xbt.h"
#include "xlog.h"
#include "xnb.h"
#include "xpce.h"

using namespace plov::restart;
using testing::ElementsAre;
using testing::IsEmpty;
using Codes = std::pair<int32_t, uint32_t>;
using Strings = std::vector<std::string>;

namespace {

// What the Java side, the shell, the log and the allocator do, and what they were asked.
struct World {
  int32_t create = 0, create_second = 0, call = 0, answer = 0, release = 0, shell = 0;
  uint32_t log_code = 0;
  bool no_memory = false;
  int references = 0;
  Strings strings = {}, calls = {}, commands = {}, events = {}, headers = {}, blocks = {};
} world;

}  // namespace

extern "C" {

int system(const char* command) {
  world.commands.push_back(command);
  errno = EAGAIN;
  return world.shell;
}

int32_t xnbCreateStringFromUTF8(const char* text, uint32_t length, xnb_object* string) {
  const int32_t rc = world.strings.empty() ? world.create : world.create_second;
  world.strings.push_back({text, length});
  *string = reinterpret_cast<xnb_object>(world.strings.size());
  if (rc == 0) ++world.references;
  return rc;
}

int32_t xnbReleaseObjectReference(xnb_object) {
  --world.references;
  return world.release;
}

const char* xnbGetLastErrorMessage() {
  return "java.lang.Error: 100%";
}

int32_t xnbCallStaticIntMethod(const char* class_name, const char* method, const char* signature, int32_t* result,
                               ...) {
  va_list arguments;
  va_start(arguments, result);
  const auto string = [&] { return world.strings[reinterpret_cast<uintptr_t>(va_arg(arguments, xnb_object)) - 1]; };
  world.calls = {class_name, method, signature, string(), string(), std::to_string(va_arg(arguments, int32_t))};
  va_end(arguments);
  *result = world.answer;
  return world.call;
}

int32_t __wrap_xlog_microcode_log(xlog_microcode_request* request, uint32_t* comprc) {
  char text[80];
  snprintf(text, sizeof text, "%u %u %.12s %X %X %X", request->type, request->user, request->event_name,
           request->options, request->error_code, request->extension);
  world.events.push_back(text);
  world.headers.push_back({static_cast<const char*>(request->data), request->data_size});
  for (const xlog_data_node* node = request->chain; node; node = node->next)
    world.blocks.push_back(std::to_string(node->block_id) + ":" + std::to_string(node->data_size));
  *comprc = world.log_code;
  return world.log_code ? 8 : 0;
}

void* plovmemdebug_malloc(size_t size, const char*, int32_t) {
  return world.no_memory ? nullptr : malloc(size);
}

void plovmemdebug_free(void* block, const char*, int32_t) {
  free(block);
}

}  // extern "C"

namespace {

Codes restart(uint32_t type, const char* name = "APP", const char* message = "why", World as = {}) {
  world = std::move(as);
  uint32_t comprc = 0xDEAD;
  const int32_t sysrc = xbt_restart(&comprc, name, message, type);
  EXPECT_EQ(world.references, 0) << "what was made is released";
  return {sysrc, comprc};
}

std::string header(std::string line1, std::string line2) {
  line1.resize(128, ' ');
  return (line1 + line2).append(848 - 128 - line2.size(), ' ');
}

TEST(Restart, AsksJavaFirstAndTheShellOnlyWhenThatFails) {
  const Strings without_memory = {"300 3081 4F", "300 5082 5", "300 3081 4F", "300 3081 4F", "200 5084 5"};
  const struct {
    World world;
    uint32_t type;
    Codes codes;
    Strings commands, events;
  } cases[] = {
      {{}, 1, {0, 0}, {}, {}},
      {{.answer = 1}, 2, {2, 0x81}, {}, {}},
      {{.answer = 2}, 3, {2, 0x80}, {}, {}},
      {{.answer = 7}, 1, {8, 0x5083}, {"reboot"}, {"300 5083 7", "200 5084 7"}},
      {{.call = 5, .answer = 1, .shell = 256}, 2, {8, 0x5082}, {"reboot"}, {"300 5082 5", "200 5084 5"}},
      {{.create = 6}, 4, {8, 0x5080}, {"poweroff"}, {"300 5080 6", "200 5084 6"}},
      {{.create_second = 9}, 4, {8, 0x5080}, {"poweroff"}, {"300 5080 9", "200 5084 9"}},
      {{.release = 3}, 1, {8, 0x5081}, {}, {"300 5081 3", "300 5081 3"}},
      {{.answer = 1, .release = 3}, 1, {8, 0x81}, {}, {"300 5081 3", "300 5081 3"}},
      {{.call = 5, .shell = -1}, 3, {8, 0x5085}, {"halt"}, {"300 5082 5", "200 5084 5", "300 5085 B"}},
      {{.call = 5, .no_memory = true}, 1, {8, 0x5082}, {"reboot"}, without_memory},
  };
  for (const auto& expected : cases) {
    EXPECT_EQ(restart(expected.type, "APP", "why", expected.world), expected.codes);
    EXPECT_EQ(world.commands, expected.commands) << expected.codes.second;
    Strings events = expected.events;
    for (std::string& event : events) event.insert(0, "102 1 RESTART ");
    EXPECT_EQ(world.events, events) << expected.codes.second;
  }
  restart(3);
  EXPECT_THAT(world.calls, ElementsAre("com.zanth.vemra.fw.shutdown.ShutdownManager", "nativeRestart",
                                       "Ljava.lang.String;Ljava.lang.String;I", "APP", "why", "3"));
  uint32_t code;
  ASSERT_EQ(xlog_access_sem(XLOG_SEM_LOCK, &code), 0);
  EXPECT_EQ(restart(1), Codes(8, XBT_NO_STRING)) << "under the log lock the Java side is passed by";
  EXPECT_EQ(xlog_access_sem(XLOG_SEM_UNLOCK, &code), 0);
}

TEST(Restart, RefusesBadNamesAndTypesAndTakesAnyMessage) {
  const test::Pages closed(1, PROT_NONE);
  auto* const nowhere = reinterpret_cast<const char*>(closed.begin());
  const std::string longest(256, 'n'), too_long(257, 'n');
  for (const char* name : {too_long.c_str(), "", static_cast<const char*>(nullptr), nowhere})
    EXPECT_EQ(restart(0, name, nowhere), Codes(2, XBT_BAD_NAME));
  for (uint32_t type : {0u, 5u, ~0u}) {
    EXPECT_EQ(restart(type), Codes(2, XBT_BAD_TYPE));
    for (const Strings& none : {world.strings, world.commands, world.events}) EXPECT_THAT(none, IsEmpty());
  }
  for (const char* message : {nowhere, "", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(restart(1, longest.c_str(), message), Codes(0, 0));
    EXPECT_THAT(world.strings, ElementsAre(longest, ""));
  }
  const test::Pages endless(XPCE_STRING_LIMIT / test::kPage, PROT_READ | PROT_WRITE);
  memset(endless.begin(), 'm', XPCE_STRING_LIMIT);
  EXPECT_EQ(restart(1, "APP", reinterpret_cast<char*>(endless.begin()), {.call = 5}), Codes(8, XBT_CALL_FAILED));
  EXPECT_EQ(world.strings[1].size(), XPCE_STRING_LIMIT);
}

TEST(Restart, WritesItsLinesIntoTheHeader) {
  restart(2, "50% off %n", "100%", {.call = 5, .shell = -1});
  EXPECT_EQ(world.headers[0], header("do_xbt_restart: (5082) xnbCallStaticIntMethod returned 5",
                                     ">             : (5082) (Null Message)"));
  restart(1, std::string(200, 'n').c_str(), "why", {.create = 5});
  EXPECT_EQ(world.headers[1], header("lookup_err: (3580) Error Message Exceeds maximum length of 78.",
                                     ">         : (3580) Length is 216. Message # 5084."));
}

TEST(Restart, TracesToTheLetter) {
  const size_t before = test::traced().size();
  restart(4, "APP", "why", {.call = 5});
  const std::string all = test::traced().substr(before);
  const std::regex lookup(".*(lookup_err|: \\().*\n"), tag(".*XBT\\*{4}");
  const std::string lines = std::regex_replace(std::regex_replace(all, lookup, ""), tag, "");
  EXPECT_EQ(lines,
            "T: -> xbt_restart:\nF:    do_xbt_restart: About to call xnbCallStaticIntMethod\n"
            "F:    do_xbt_restart: xnbCallStaticIntMethod failed with rc = 5\n"
            "F:                  : Error was: java.lang.Error: 100%\nF:    log_it_bt: NO GDS Secondary Block\n"
            "F:    do_xbt_restart: Because of a failure to reach the Java world,\n"
            "F:                  : we will try to shutdown here from the C world\nD: -> local_shutdown\n"
            "F:    local_shutdown: Because of a failure to reach the Java world,\n"
            "F:                  : we will try to shutdown here from the C world\n"
            "F:                  : App Name is >APP<\nF:                  : App Message is >why<\n"
            "F:    log_it_bt: NO GDS Secondary Block\nF:    my_system: Results of >poweroff< was 0\n"
            "F:    xbt_restart: src= 0x8, crc= 0x5082\nT: <- xbt_restart:\n");
}

TEST(Restart, LooksUpWhatTheTableDoesNotHave) {
  const auto look_up = [](uint32_t id, uint32_t part, auto... arguments) {
    RestartRecord record = {};
    return std::string(lookup_err(record, bt_err_info.count, bt_err_info.table, id, part, arguments...).get());
  };
  world = {};
  EXPECT_EQ(look_up(0x5082, 2), "lookup_err: Part number 2 is incorrect for message # 5082");
  EXPECT_EQ(look_up(0xFF00, 2), "lookup_err: Part number 2 is incorrect for message # FF00");
  EXPECT_EQ(look_up(0x77, 0), "lookup_err: Part number 0 is incorrect. message #   77");
  EXPECT_EQ(look_up(0x7777, 2), "lookup_err: Error #2-> No Known message # 7777 found!!");
  EXPECT_EQ(look_up(0x5084, 2, std::string(62, 'n').c_str()), "shutdown for >" + std::string(62, 'n') + "<.");
  EXPECT_THAT(world.events, IsEmpty()) << "78 characters just fit";
  EXPECT_EQ(look_up(0x5084, 2, std::string(256, 'n').c_str()), "shutdown for >" + std::string(64, 'n'));
}

TEST(Restart, LogsItsBlocksAndARebootRequestOnce) {
  const test::Pages pages(3, PROT_READ | PROT_WRITE);
  RestartRecord record = {0, 0, 9, 1, "", pages.begin(), 0, 1};
  const std::vector<SecondaryBlock> seven(7, SecondaryBlock{"data", 4});
  memcpy(pages.begin(), "\x01\x02", 2);
  world = {};
  EXPECT_EQ(log_it_bt(record, "f", "one", nullptr, 0x5082, kLogEvent, seven), 0u);
  EXPECT_THAT(world.blocks, ElementsAre("4:258", "5:4", "6:4", "7:4", "8:4", "9:4"));
  EXPECT_EQ(world.headers[0].substr(256), "Reboot requested" + std::string(576, ' '));
  memcpy(pages.begin(), "\x40", 1);  // longer than a GDS block may be
  world.blocks.clear();
  world.log_code = 0x1802;
  EXPECT_EQ(log_it_bt(record, "f", "one", nullptr, 0x5082, kPutEvent), 0x1802u);
  EXPECT_THAT(world.blocks, ElementsAre("4:8192"));
  EXPECT_THAT(world.events, ElementsAre("102 1 UnKnown 1300 5082 9", "102 1 UnKnown 200 5082 9"));
  world = {};
  for (uint8_t* gone : {pages.end() - 8000, pages.end() - 1}) {
    *gone = 0x40;
    record.gds = gone;
    log_it_bt(record, "f", "one", nullptr, 0x5082, kPutEvent, {seven.data(), 1});
  }
  EXPECT_THAT(world.blocks, ElementsAre("5:4", "5:4")) << "the entry itself is not lost";
}

}  // namespace
