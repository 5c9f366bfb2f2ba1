// The process kernel: message lines, timed mutexes, and events that wait until the log may run.
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "pce.h"
#include "plovmemdebug.h"
#include "support/child.h"
#include "xlog.h"
#include "xpce.h"
#include "xtr.h"

namespace {

struct Recorded {
  uint16_t flags;
  uint16_t user;
  std::string name;
  uint32_t data;
  std::string text;
  bool mutex_free;
};
std::vector<Recorded> log_entries;
int32_t record_result;
bool event_inside_record;

}  // namespace

// In the log's place.
int32_t xlog_record(xlog_log_request* request, uint32_t* comprc) {
  const bool mutex_free = pthread_mutex_trylock(&xtr_mutex_sem) == 0 && pthread_mutex_unlock(&xtr_mutex_sem) == 0;
  EXPECT_EQ(request->eventid.classes, 5);
  EXPECT_EQ(request->eventid.log_type, 1);
  EXPECT_STREQ(request->target_session, "");
  const xlog_data_node* error = request->data;
  EXPECT_EQ(error->block_id, 0xF0);
  EXPECT_EQ(error->data_size, 6u);
  uint16_t id;
  uint32_t data;
  memcpy(&id, error->data_ptr, sizeof id);
  memcpy(&data, static_cast<const char*>(error->data_ptr) + sizeof id, sizeof data);
  EXPECT_EQ(id, request->eventid.user);
  const xlog_data_node* text = error->next;
  EXPECT_EQ(text->block_id, 0x03);
  EXPECT_EQ(text->next, nullptr);
  log_entries.push_back({request->flags, request->eventid.user,
                         std::string(request->event_name, strnlen(request->event_name, XLOG_NAME_SIZE)), data,
                         std::string(static_cast<const char*>(text->data_ptr), text->data_size), mutex_free});
  if (event_inside_record) pce_log_event(nullptr, "inner", nullptr, nullptr, 0x999);
  *comprc = 0x77;
  return record_result;
}

namespace {

std::string look_up(pce_call_record* record, uint32_t id, uint32_t part, const char* first = "", uint32_t second = 0) {
  static const xpce_message table[] = {{0x10, "first %s, %u"}, {0x10, "second %s"}, {0x11, "alone %s"},
                                       {0x12, "%s"},           {0x12, "%s"},        {0x9999, "Dummy Message"}};
  char* line = nullptr;
  EXPECT_EQ(pce_lookup_err(record, 6, table, &line, id, part, first, second), 0);
  const std::string text = line ? line : "(none)";
  EXPECT_EQ(pce_free(record, line), 0);
  return text;
}

char* line_of(const char* text) {
  pce_call_record record = {};
  void* block = nullptr;
  EXPECT_EQ(pce_malloc(&record, &block, PCE_LINE_SIZE), 0);
  return strcpy(static_cast<char*>(block), text);
}

TEST(MessageLookup, FormatsTheLineOfTheTable) {
  pce_call_record record = {};
  EXPECT_EQ(look_up(&record, 0x10, 1, "a", 7), "first a, 7");
  EXPECT_EQ(look_up(&record, 0x10, 2, "b"), "second b");
  EXPECT_EQ(look_up(&record, 0x11, 1, "c"), "alone c");
  EXPECT_EQ(look_up(&record, 0x11, 2), "lookup_err: Part number 2 is incorrect for message #   11");
  EXPECT_EQ(look_up(&record, 0x9999, 2), "lookup_err: Part number 2 is incorrect for message # 9999");
  EXPECT_EQ(look_up(&record, 0x10, 3), "lookup_err: Part number 3 is incorrect. message #   10");
  EXPECT_EQ(look_up(&record, 0x77, 0), "lookup_err: Part number 0 is incorrect. message #   77");
  EXPECT_EQ(look_up(&record, 0x77, 1), "lookup_err: Error #1-> No Known message #   77 found!!");
  EXPECT_EQ(look_up(&record, 0x77, 2), "lookup_err: Error #2-> No Known message #   77 found!!");
  EXPECT_TRUE(log_entries.empty());
  EXPECT_EQ(plovmemdebug_list(nullptr, nullptr), 0u);
}

TEST(MessageLookup, CutsALongLineAndSaysSo) {
  pce_call_record record = {};
  EXPECT_EQ(look_up(&record, 0x12, 1, std::string(78, 'x').c_str()), std::string(78, 'x'));
  EXPECT_TRUE(log_entries.empty());
  EXPECT_EQ(look_up(&record, 0x12, 1, std::string(1000, 'y').c_str()), std::string(78, 'y'));
  ASSERT_EQ(log_entries.size(), 1u);
  EXPECT_EQ(log_entries[0].user, 0x3580);
  EXPECT_EQ(log_entries[0].flags, 0);
  EXPECT_THAT(log_entries[0].text, testing::HasSubstr("Error Message Exceeds maximum length of 78.\nLength is 1000. "
                                                      "Message # 0012."));
  EXPECT_EQ(plovmemdebug_list(nullptr, nullptr), 0u);
}

TEST(Events, GoToTheLogAndFreeTheirLines) {
  pce_call_record record = {};
  record.data = 0x12345678;
  EXPECT_EQ(pce_log_event(&record, "a_long_function_name", line_of("line one"), line_of("line two"), 0x10710), 0);
  record_result = 8;
  event_inside_record = true;
  EXPECT_EQ(pce_put_event(&record, "short", nullptr, nullptr, 0x702), 0);
  ASSERT_EQ(log_entries.size(), 2u) << "an event of the recording itself must not be recorded";
  EXPECT_EQ(log_entries[0].flags, XLOG_DISPLAY_AS_ERROR_FLAG);
  EXPECT_EQ(log_entries[0].user, 0x710);
  EXPECT_EQ(log_entries[0].name, "a_long_funct");
  EXPECT_EQ(log_entries[0].data, 0x12345678u);
  EXPECT_EQ(log_entries[0].text, std::string("a_long_funct: (10710) line one\nline two") + '\0');
  EXPECT_EQ(log_entries[1].flags, 0);
  EXPECT_EQ(log_entries[1].text, std::string("short: (702) (Null Message)\n(Null Message)") + '\0');
  EXPECT_EQ(plovmemdebug_list(nullptr, nullptr), 0u);
}

TEST(Events, WaitWhileTheThreadHoldsTheTraceMutex) {
  pce_call_record record = {};
  ASSERT_EQ(pce_pthd_mutex_req(&record, &xtr_mutex_sem, 90000, 0x750), 0);
  for (uint32_t i = 0; i < 10; ++i) pce_log_event(&record, "waiting", line_of("one"), line_of("two"), 0x100 + i);
  EXPECT_TRUE(log_entries.empty());
  std::thread([] { pce_put_event(nullptr, "other", line_of("x"), nullptr, 1); }).join();
  ASSERT_EQ(log_entries.size(), 1u) << "only the holder's events wait";
  EXPECT_EQ(test::in_child([] {
              pce_call_record child = {};
              if (pce_pthd_mutex_req(&child, &xtr_mutex_sem, 0, 1) != 0) return 1;
              if (pce_pthd_mutex_rel(&child, &xtr_mutex_sem, 1) != 0) return 2;
              return log_entries.size() == 1 && plovmemdebug_list(nullptr, nullptr) == 0 ? 0 : 3;
            }),
            0)
      << "a child recorded, or kept, its parent's events";
  log_entries.clear();
  ASSERT_EQ(pce_pthd_mutex_rel(&record, &xtr_mutex_sem, 0x750), 0);
  ASSERT_EQ(log_entries.size(), 8u);
  for (uint32_t i = 0; i < 8; ++i) {
    EXPECT_EQ(log_entries[i].user, 0x100 + i);
    EXPECT_TRUE(log_entries[i].mutex_free);
  }
  EXPECT_EQ(plovmemdebug_list(nullptr, nullptr), 0u);
  EXPECT_EQ(record.sysrc, 0u);

  pthread_mutex_t other = PTHREAD_MUTEX_INITIALIZER;
  ASSERT_EQ(pce_pthd_mutex_req(&record, &other, PCE_WAIT_FOREVER, 0x750), 0);
  pce_log_event(&record, "at once", nullptr, nullptr, 2);
  EXPECT_EQ(log_entries.size(), 9u);
  EXPECT_EQ(pce_pthd_mutex_rel(&record, &other, 0x750), 0);
}

TEST(TimedMutex, FailuresGoIntoTheRecord) {
  pce_call_record record = {};
  record.sysrc = 2;
  ASSERT_EQ(pce_pthd_mutex_req(&record, &xtr_mutex_sem, 0, 0x750), 0);
  EXPECT_EQ(pce_pthd_mutex_req(&record, &xtr_mutex_sem, 90000, 0x751), 8) << "its holder must not hang";
  EXPECT_EQ(record.comprc, 0x751u);
  EXPECT_EQ(record.sysrc, 8u);
  EXPECT_EQ(record.data, static_cast<uint32_t>(EDEADLK));
  std::thread([] {
    pce_call_record waiter = {};
    EXPECT_EQ(pce_pthd_mutex_req(&waiter, &xtr_mutex_sem, 50, 0x753), 8);
    EXPECT_EQ(waiter.comprc, 0x753u);
    EXPECT_EQ(waiter.data, static_cast<uint32_t>(ETIMEDOUT));
  }).join();
  EXPECT_EQ(pce_pthd_mutex_rel(&record, &xtr_mutex_sem, 0x750), 0);
#ifndef __SANITIZE_THREAD__  // which reports the mistake itself
  EXPECT_EQ(pce_pthd_mutex_rel(&record, &xtr_mutex_sem, 0x752), 8);
  EXPECT_EQ(record.comprc, 0x751u) << "the first reason stays";
#endif
}

}  // namespace
