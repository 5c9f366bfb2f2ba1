// Entries of the microcode log: their blocks, what suppresses them, what becomes of bad pointers; and backtraces.
#include <dlfcn.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <memory>

#include "plovmemdebug.h"
#include "support/codes.h"
#include "support/files.h"
#include "support/log_calls.h"
#include "support/map_file.h"
#include "support/traced.h"
#include "xbt.h"
#include "xlog.h"
#include "xtr.h"

using namespace test;

namespace {
std::string thread_trace, process_trace, facility_trace;
std::vector<std::string> restarts;

int32_t give(const std::string& text, char* buffer, uint32_t n, uint32_t width) {
  EXPECT_EQ(n, 40960u);
  EXPECT_EQ(width, 1u);
  memcpy(buffer, text.data(), text.size());
  return 0;
}
}  // namespace

int32_t xtr_fetch_tid(char* buffer, uint32_t n, uint32_t width, uint32_t*, uint32_t*) {
  return give(thread_trace, buffer, n, width);
}
int32_t xtr_fetch_pid(char* buffer, uint32_t n, uint32_t width, uint32_t*, uint32_t*) {
  return give(process_trace, buffer, n, width);
}
int32_t xtr_fetch(char* buffer, uint32_t n, uint32_t width, uint32_t*, uint32_t*) {
  return give(facility_trace, buffer, n, width);
}
// Nothing here may restart the machine.
int32_t xbt_restart(uint32_t*, const char* name, const char* message, uint32_t kind) {
  restarts.push_back(name + std::string(": ") + message + " " + std::to_string(kind));
  return 0;
}

namespace {

constexpr uint32_t kNoBacktrace = XLOG_MICROCODE_NO_BACKTRACE;

std::unique_ptr<xlog_microcode_request> request_of(uint32_t options = kNoBacktrace) {
  auto request = std::make_unique<xlog_microcode_request>();
  *request = {};
  request->type = 1;
  request->user = 7;
  request->options = options;
  memcpy(request->event_name, "microcode", 9);
  request->error_code = 0x4902;
  request->extension = 0xAB;
  return request;
}

// The ids of the newest log's blocks between the UTC offset and the standard block.
std::string ids(const ReadLog& log) {
  std::string text;
  for (size_t i = 1; i + 1 < log.blocks.size(); ++i) {
    char id[4];
    snprintf(id, sizeof id, "%02X ", log.blocks[i].id);
    text += id;
  }
  return text;
}

std::string newest_ids() {
  return ids(read_all()[0]);
}

TEST(Microcode, EntryInItsOrder) {
  thread_trace = "thread", process_trace = "process", facility_trace = "facility";
  auto request = request_of(XLOG_DISPLAY_AS_ERROR_FLAG);
  request->data = "data";
  request->data_size = 4;
  xlog_data_node second = {5, 0xE0, "other", nullptr}, first = {3, 0xE1, "own", &second};
  request->chain = &first;
  errno = 4711;
  ASSERT_EQ(codes(xlog_microcode_log, request.get()), Codes(0, 0));
  EXPECT_EQ(errno, 4711);
  const ReadLog log = read_all()[0];
  EXPECT_EQ(log.eventid.classes, 0xE4);
  EXPECT_EQ(log.eventid.log_type, 1);
  EXPECT_EQ(log.eventid.user, 7);
  EXPECT_EQ(log.flags, XLOG_LOG_DISPLAY_AS_ERROR);
  EXPECT_EQ(memcmp(&request->timestamp, &log.timestamp, sizeof log.timestamp), 0);
  EXPECT_EQ(ids(log), "EF EE ED E2 03 F0 E1 E0 ") << "the backtrace takes the first id that is free";
  EXPECT_EQ(log.blocks[1].bytes, "facility");
  EXPECT_EQ(log.blocks[3].bytes, "thread");
  EXPECT_NE(log.blocks[4].bytes.find("microcode_test"), std::string::npos) << log.blocks[4].bytes;
  EXPECT_EQ(log.blocks[6].bytes, std::string("\x02\x49\xAB\0\0\0", 6));
}

TEST(Microcode, TracesThatAreEqualAreLeftOut) {
  const struct {
    const char *thread, *process, *facility, *ids;
  } cases[] = {{"a", "b", "c", "EF EE ED F0 "}, {"a", "a", "c", "EF EE F0 "}, {"a", "b", "a", "EF ED F0 "},
               {"a", "b", "b", "EF ED F0 "},    {"a", "a", "a", "EF F0 "},    {"", "", "x", "EF EE F0 "}};
  for (const auto& c : cases) {
    thread_trace = c.thread, process_trace = c.process, facility_trace = c.facility;
    ASSERT_EQ(codes(xlog_microcode_log, request_of().get()), Codes(0, 0));
    EXPECT_EQ(newest_ids(), c.ids) << c.thread << c.process << c.facility;
  }
  auto request = request_of(kNoBacktrace | XLOG_MICROCODE_NO_THREAD_TRACE | XLOG_MICROCODE_NO_PROCESS_TRACE |
                            XLOG_MICROCODE_NO_TRACE);
  ASSERT_EQ(codes(xlog_microcode_log, request.get()), Codes(0, 0));
  EXPECT_EQ(newest_ids(), "F0 ");
  EXPECT_EQ(request->options, kNoBacktrace) << "the three bits are gone from the caller's request";
}

TEST(Microcode, ClassesRestartsAndTheFileList) {
  xlog_data_node list = {16, 0xDF, "a.trm,b.trm;\0c\n", nullptr};
  auto request = request_of(kNoBacktrace | XLOG_MICROCODE_RESTART_2 | XLOG_MICROCODE_RESTART_1);
  request->chain = &list;
  for (const auto& [asked, stored] : {std::pair(10, 0xE4), std::pair(0xAA, 0xE5), std::pair(0x21, 0x21)}) {
    uint32_t comprc;
    ASSERT_EQ(xlog_microcode_log2(request.get(), static_cast<uint8_t>(asked), &comprc), 0);
    EXPECT_EQ(read_all()[0].eventid.classes, stored);
  }
  const std::string restart = "LOGGER: A restart has been requested due to a nonrecoverable error ";
  ASSERT_EQ(restarts.size(), 6u);
  EXPECT_EQ(restarts[0], restart + "2");
  EXPECT_EQ(restarts[1], restart + "1");
  uint32_t code;
  ASSERT_EQ(xlog_access_sem(XLOG_SEM_LOCK, &code), 0);
  EXPECT_EQ(codes(xlog_microcode_log, request.get()), Codes(0, 0));
  EXPECT_EQ(restarts.size(), 6u) << "not under the log lock";
  ASSERT_EQ(xlog_access_sem(XLOG_SEM_UNLOCK, &code), 0);
  EXPECT_EQ(restarts.size(), 8u);
}

TEST(Microcode, AFieldOfTheMapSuppressesEntries) {
  MapFile().add(16, kPersistent, std::string(2, '\1')).install();
  EXPECT_EQ(codes(xlog_microcode_log, request_of().get()), Codes(0, 0));
  EXPECT_FALSE(exists(data_path("wexolog.log")));
  EXPECT_EQ(codes(xlog_microcode_log, request_of(kNoBacktrace | XLOG_MICROCODE_ALWAYS).get()), Codes(0, 0));
  EXPECT_EQ(read_all().size(), 2u);
}

TEST(Microcode, BadPointersAreEntriesOfTheirOwn) {
  auto request = request_of();
  EXPECT_EQ(xlog_microcode_log(request.get(), nullptr), 1);
  uint32_t comprc = 0;
  EXPECT_EQ(xlog_microcode_log(nullptr, &comprc), 8);
  EXPECT_EQ(comprc, XLOG_MICROCODE_BAD_REQUEST);
  request->data = reinterpret_cast<void*>(1);
  request->data_size = 64;
  EXPECT_EQ(codes(xlog_microcode_log, request.get()), Codes(0, 0)) << "goes on without its data";
  const auto logs = read_all();
  ASSERT_EQ(logs.size(), 5u);
  const auto error_code = [](const ReadLog& log) {
    for (const Block& block : log.blocks)
      if (block.id == XLOG_ERROR_BLOCK_ID) return block.bytes.substr(0, 2);
    return std::string();
  };
  EXPECT_EQ(error_code(logs[0]), "\x02\x49");
  EXPECT_EQ(error_code(logs[1]), "\x03\x80");
  EXPECT_EQ(error_code(logs[2]), "\x02\x80");
  EXPECT_EQ(error_code(logs[3]), "\x01\x80");
  for (int own : {1, 2, 3}) EXPECT_EQ(logs[own].name.substr(0, 11), "LIC log Err");
}

TEST(Backtrace, NamesTheCallers) {
  char* text = nullptr;
  uint32_t comprc;
  EXPECT_EQ(xlog_get_backtrace(&text, 0, &comprc), 0);
  ASSERT_TRUE(text);
  const std::string whole = text;
  plovmemdebug_free(text, __FILE__, __LINE__);
  EXPECT_EQ(whole.find("at "), 0u);
  EXPECT_NE(whole.find("(xlog_get_backtrace+"), std::string::npos) << whole;
  EXPECT_EQ(xlog_get_backtrace(&text, 1, &comprc), 0);
  EXPECT_LT(strlen(text), whole.size());
  plovmemdebug_free(text, __FILE__, __LINE__);
  EXPECT_EQ(xlog_get_backtrace(nullptr, 0, &comprc), 0);
  EXPECT_EQ(xlog_get_backtrace(&text, 1000, &comprc), 0);
  EXPECT_STREQ(text, "");
  plovmemdebug_free(text, __FILE__, __LINE__);
  EXPECT_EQ(xlog_get_block_size("ab\0c\0\0", 6), 4u);
  EXPECT_EQ(xlog_get_block_size("\0\0", 2), 1u);
}

}  // namespace
