// System events as they lie in the log, and event data as it lies in a caller's area.
#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/mman.h>

#include <memory>

#include "plovmemdebug.h"
#include "support/codes.h"
#include "support/doubles.h"
#include "support/log_calls.h"
#include "support/pages.h"
#include "xlog.h"

using namespace test;
using namespace std::string_literals;

namespace {
int fail_allocation;  // the n-th from now on; 0: none
}

void* plovmemdebug_malloc(size_t size, const char* file, int32_t line) {
  if (fail_allocation > 0 && --fail_allocation == 0) return errno = ENOMEM, nullptr;
  return REAL(plovmemdebug_malloc)(size, file, line);
}

namespace {

// A chain of variables in the caller's order.
struct Variables {
  Variables(std::initializer_list<std::pair<uint32_t, std::string>> list) : texts(list.begin(), list.end()) {
    for (const auto& [kind, text] : texts)
      nodes.push_back({kind, static_cast<uint16_t>(text.size()), text.data(), nullptr});
    for (size_t i = 1; i < nodes.size(); ++i) nodes[i - 1].next = &nodes[i];
  }
  std::vector<std::pair<uint32_t, std::string>> texts;
  std::vector<xlog_variable> nodes;
};

template <class Event>
std::unique_ptr<Event> event_of(Variables* variables, uint16_t options = 0, const char* target = "") {
  auto event = std::make_unique<Event>();
  *event = {};
  event->options = options;
  event->user = 42;
  memcpy(event->event_name, "system event", 12);
  strcpy(event->target_session, target);
  event->variables = variables ? variables->nodes.data() : nullptr;
  return event;
}

// Without the UTC block in front: "F3=..." a line.
std::vector<std::string> blocks_of(const ReadLog& log) {
  std::vector<std::string> lines;
  for (size_t i = 1; i < log.blocks.size(); ++i) {
    char id[8];
    snprintf(id, sizeof id, "%02X=", log.blocks[i].id);
    lines.push_back(id + log.blocks[i].bytes);
  }
  return lines;
}

TEST(SystemEvent, BlocksOfEachKindInTheirOrder) {
  Variables variables = {{XLOG_VARIABLE_TEXT, "text"},      {XLOG_VARIABLE_HEX, "\x01\x02\xAB\xFF"},
                         {XLOG_VARIABLE_EMPTY, "left out"}, {XLOG_VARIABLE_CONVERTED, "\xC8\x85\x93\x93\x96"},
                         {XLOG_VARIABLE_HEX, ""},           {77, "of no kind"}};
  const std::vector<xlog_variable> before = variables.nodes;
  auto event = event_of<xlog_system_event>(&variables, XLOG_DISPLAY_AS_ERROR_FLAG);
  event->tower = "tower";
  ASSERT_EQ(codes(xlog_sysevent, event.get()), Codes(0, 0));
  const ReadLog log = read_all()[0];
  EXPECT_EQ(log.eventid.classes, 0);
  EXPECT_EQ(log.eventid.log_type, 0);
  EXPECT_EQ(log.eventid.user, 42);
  EXPECT_EQ(log.name, "system event");
  EXPECT_EQ(log.flags, XLOG_LOG_DISPLAY_AS_ERROR);
  EXPECT_EQ(blocks_of(log),
            (std::vector<std::string>{"F3=\0\5tower\0\00242"s, "F1=\6\0\0\0"s, "08=of no kind\0"s, "07=\0"s,
                                      "06=Hello\0"s, "05=\0"s, "04=0102ABFF\0"s, "03=text\0"s}));
  EXPECT_EQ(memcmp(before.data(), variables.nodes.data(), before.size() * sizeof before[0]), 0) << "the caller's chain";
}

TEST(SystemEvent, OptionsChooseTypeAndFile) {
  const auto event = event_of<xlog_system_event>(nullptr, XLOG_KEEP_INFORMATIONAL, "abc");
  ASSERT_EQ(codes(xlog_sysevent, event.get()), Codes(0, 0));
  ASSERT_EQ(read_all("abc").size(), 2u);
  EXPECT_EQ(read_all("abc")[0].eventid.log_type, 1);
  EXPECT_EQ(blocks_of(read_all("abc")[0]), std::vector<std::string>{"F1=\0\0\0\0"s});
  event->options |= XLOG_MAIN_LOG_FLAG;
  ASSERT_EQ(codes(xlog_sysevent, event.get()), Codes(0, 0));
  EXPECT_EQ(read_all("abc").size(), 2u);
  EXPECT_EQ(read_all()[0].eventid.log_type, 1);
}

TEST(SystemEvent, E4HasExtraDataAndNoOptions) {
  Variables variables = {{XLOG_VARIABLE_TEXT, "v"}};
  auto event = event_of<xlog_e4_system_event>(&variables, XLOG_KEEP_INFORMATIONAL | XLOG_MAIN_LOG_FLAG, "abc");
  event->extra_size = 5;
  event->extra_data = "extra";
  event->tower = "";
  ASSERT_EQ(codes(xlog_e4_sysevent, event.get()), Codes(0, 0));
  const auto logs = read_all("e4");
  ASSERT_EQ(logs.size(), 1u);
  EXPECT_EQ(logs[0].eventid.log_type, 0);
  EXPECT_EQ(blocks_of(logs[0]), (std::vector<std::string>{"F3=\0\0\0\00242"s, "D0=extra", "F1=\1\0\0\0"s, "03=v\0"s}));
}

TEST(SystemEvent, MoreVariablesThanALogHolds) {
  Variables variables = {{XLOG_VARIABLE_TEXT, "v"}};
  variables.nodes[0].next = variables.nodes.data();
  const auto event = event_of<xlog_system_event>(&variables);
  EXPECT_EQ(codes(xlog_sysevent, event.get()), Codes(2, XLOG_RECORD_TOO_MANY_BLOCKS)) << "a chain without end";
  variables.nodes.assign(253, {XLOG_VARIABLE_TEXT, 1, "v", nullptr});
  for (size_t i = 1; i < variables.nodes.size(); ++i) variables.nodes[i - 1].next = &variables.nodes[i];
  event->variables = variables.nodes.data();
  EXPECT_EQ(codes(xlog_sysevent, event.get()), Codes(0, 0)) << "with UTC block and count 255";
  event->tower = "one too many";
  EXPECT_EQ(codes(xlog_sysevent, event.get()), Codes(2, XLOG_RECORD_TOO_MANY_BLOCKS));
}

TEST(SystemEvent, EveryAllocationFails) {
  Variables variables = {{XLOG_VARIABLE_TEXT, "t"}, {XLOG_VARIABLE_HEX, "h"}};
  auto event = event_of<xlog_e4_system_event>(&variables);
  event->extra_size = 5;
  event->extra_data = "extra";
  event->tower = "tower";
  int own = 0;
  size_t recorded = 1;
  for (int n = 1;; ++n) {
    fail_allocation = n;
    const Codes result = codes(xlog_e4_sysevent, event.get());
    if (fail_allocation > 0) break;
    if (result == Codes(2, XLOG_RECORD_NO_INPUT_MEMORY)) ++own;
    if (result.first == 0) ++recorded;  // what the opening of the file can do without
  }
  fail_allocation = 0;
  EXPECT_EQ(own, 7) << "two variables, the digits of one, count, extra data, tower text and block";
  EXPECT_EQ(read_all("e4").size(), recorded);
}

TEST(EventData, EntriesBackToBack) {
  const char* texts[] = {"first", ""};
  const std::string large(65536 + 3, 'L');
  const xlog_message_reference references[] = {{"bundle", "key", 2, texts}, {"b", large.c_str(), 0, nullptr}};
  uint8_t area[64] = {};
  uint8_t* cursor = area;
  const xlog_event_data_details details = {&cursor, 2, references};
  ASSERT_EQ(codes(xlog_append_event_data, &details), Codes(0, 0));
  const std::string expected = "\0\x16\0\6bundle\0\3key\0\5first\0\0\0\x08\0\1b\0\3LLL"s;
  EXPECT_EQ(std::string(area, cursor), expected) << "the low 16 bits of a length are all there is";
  EXPECT_EQ(area[expected.size()], 0);
}

TEST(EventData, StopsWhereTheAreaEnds) {
  const char* texts[] = {"text"};
  const xlog_message_reference reference = {"bundle", "key", 1, texts};
  Pages pages(1, PROT_READ | PROT_WRITE);
  const struct {
    size_t room, written;
    uint32_t code;
  } cases[] = {{1, 0, XLOG_EVENT_DATA_NO_ROOM},
               {9, 2, XLOG_EVENT_DATA_NO_BUNDLE_ROOM},
               {14, 10, XLOG_EVENT_DATA_NO_KEY_ROOM},
               {20, 15, XLOG_EVENT_DATA_NO_VARIABLE_ROOM},
               {21, 21, 0}};
  for (const auto& c : cases) {
    uint8_t* cursor = pages.end() - c.room;
    const xlog_event_data_details details = {&cursor, 1, &reference};
    EXPECT_EQ(codes(xlog_append_event_data, &details), Codes(c.code ? 2 : 0, c.code)) << c.room;
    EXPECT_EQ(cursor, pages.end() - c.room + c.written) << "what was written stays";
  }
}

}  // namespace
