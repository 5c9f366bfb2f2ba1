// The inner half of the frame: trace lines, the exported call, the message table, failures that wait.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdarg.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "frame/call.h"
#include "frame/deferred.h"
#include "frame/trace_line.h"
#include "support/trace_double.h"
#include "xpce.h"

using testing::ElementsAre;

namespace plov::frame {
namespace {

std::string line_of(const char* prefix, char level, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  EXPECT_EQ(trace_line(prefix, level, format, arguments), 0);
  va_end(arguments);
  return traced().back();
}

TEST(TraceLine, PutsTheLevelIntoThePrefix) {
  EXPECT_EQ(line_of("XBT****T: ", 'D', "-> %s:", "xbt_restart"), "XBT****D: -> xbt_restart:");
  EXPECT_EQ(pce_trace_line('F', "   init_thd: rc= %u", 11u), 0);
  EXPECT_EQ(traced().back(), "XPCE*SOF:    init_thd: rc= 11");
}

TEST(TraceLine, IsCutAt255AndLosesOneNewline) {
  EXPECT_EQ(line_of("XMIS***T: ", 'T', "%s", std::string(245, 'x').c_str()), "XMIS***T: " + std::string(245, 'x'));
  EXPECT_EQ(line_of("XMIS***T: ", 'T', "%s", std::string(2000, 'x').c_str()), "XMIS***T: " + std::string(245, 'x'));
  EXPECT_EQ(line_of("XMIS***T: ", 'T', "one\ntwo\n\n"), "XMIS***T: one\ntwo\n");
  EXPECT_EQ(line_of("XMIS***T: ", 'T', "\n"), "XMIS***T: ");
  EXPECT_EQ(line_of("XMIS***T: ", 'T', ""), "XMIS***T: ");
}

TEST(TraceLine, IsReadAgainWithoutArguments) {
  EXPECT_EQ(line_of("XMIS***T: ", 'T', "%s", "100%% %s %n %"), "XMIS***T: 100% %s %n %");
  EXPECT_EQ(line_of("XMIS***T: ", 'T', "%s", "%%%"), "XMIS***T: %%");
  EXPECT_EQ(line_of("XMIS***T: ", 'T', "%s", std::string(300, '%').c_str()), "XMIS***T: " + std::string(123, '%'));
}

char buffer[100];

int32_t exported(uint32_t* comprc, const void* bytes, const char* text, void (*work)(Call&)) {
  Call call("xabc_do", "XABCDO T: -> xabc_do", "XABCDO T: <- xabc_do", comprc);
  uint32_t length = 77;
  if (call.writable(bytes, 100, 0x11) && call.readable(text, 1, 0x12) && call.text(text, 0x13, &length)) {
    EXPECT_EQ(length, 4u);
    work(call);
  }
  return call.leave();
}

TEST(Call, TracesProbesAndHandsBackBothCodes) {
  uint32_t comprc = 99;
  trace_count = 0;
  EXPECT_EQ(exported(&comprc, buffer, "text",
                     [](Call& call) {
                       EXPECT_STREQ(call.record().name, "xabc_do");
                       EXPECT_EQ(call.record().active, 1u);
                       EXPECT_EQ(call.record().crash, 0u);
                     }),
            0);
  EXPECT_EQ(comprc, 0u);
  EXPECT_THAT(traced(), ElementsAre("XABCDO T: -> xabc_do", "XABCDO T: <- xabc_do"));
}

TEST(Call, FirstCodeStaysAndLargerGradeWins) {
  uint32_t comprc = 99;
  trace_count = 0;
  EXPECT_EQ(exported(&comprc, buffer, "text",
                     [](Call& call) {
                       EXPECT_FALSE(call.fail(kSystemFailure, 0x21));
                       EXPECT_FALSE(call.refuse(0x22));
                       EXPECT_FALSE(call.ok());
                       EXPECT_FALSE(call.writable(&call, 1, 0x23)) << "no probe after a failure";
                     }),
            8);
  EXPECT_EQ(comprc, 0x21u);
  EXPECT_THAT(traced(),
              ElementsAre("XABCDO T: -> xabc_do", "XABCDO F:    xabc_do: src= 0x8, crc= 0x21", "XABCDO T: <- xabc_do"));
  EXPECT_EQ(exported(&comprc, buffer, "text", [](Call& call) { call.set_comprc(5); }), 0);
  EXPECT_EQ(comprc, 5u) << "a code beside success";
}

TEST(Call, RefusesBadPointersInTheirOrder) {
  const auto never = [](Call&) { ADD_FAILURE(); };
  uint32_t comprc = 99;
  EXPECT_EQ(exported(&comprc, nullptr, nullptr, never), 2);
  EXPECT_EQ(comprc, 0x11u);
  EXPECT_EQ(exported(&comprc, buffer, nullptr, never), 2);
  EXPECT_EQ(comprc, 0x12u);
  trace_count = 0;
  EXPECT_EQ(exported(reinterpret_cast<uint32_t*>(16), nullptr, nullptr, never), 1);
  EXPECT_EQ(traced().front(), "XABCDO T: -> xabc_do");
  EXPECT_EQ(traced().back(), "XABCDO T: <- xabc_do");
  for (const std::string& line : traced()) EXPECT_EQ(line.find("src="), std::string::npos) << line;
}

TEST(Messages, AreAllThere) {
  ASSERT_EQ(err_info.count, 21u);
  ASSERT_EQ(err_info.table, err_list);
  for (uint32_t i = 1; i < err_info.count; ++i) EXPECT_LE(err_list[i - 1].id, err_list[i].id);
  EXPECT_STREQ(err_list[2].text, "Total Message size %u != sent size %u");
  EXPECT_STREQ(err_list[20].text, "Dummy Message");
}

std::vector<int> recorded;

Deferred failure(int value) {
  return {[](const Deferred& self) { recorded.push_back(self.values[0]); }, {value, 0, 0, 0}};
}

TEST(Deferred, WaitsForTheLastLockOfTheThread) {
  record_or_defer(failure(1));
  EXPECT_THAT(recorded, ElementsAre(1));
  lock_taken();
  lock_taken();
  record_or_defer(failure(2));
  // Its recording takes a lock of its own and meets a failure.
  record_or_defer({[](const Deferred&) {
                     lock_taken();
                     record_or_defer(failure(4));
                     lock_released();
                     recorded.push_back(3);
                   },
                   {}});
  lock_released();
  EXPECT_THAT(recorded, ElementsAre(1));
  lock_released();
  EXPECT_THAT(recorded, ElementsAre(1, 2, 4, 3));
  EXPECT_FALSE(lock_held());

  recorded.clear();
  trace_count = 0;
  lock_taken();
  for (int i = 0; i < 10; ++i) record_or_defer(failure(i));
  EXPECT_EQ(trace_count, 2u) << "what does not fit is traced";
  lock_released();
  EXPECT_EQ(recorded.size(), 8u);

  lock_taken();
  record_or_defer(failure(1));
  forget_locks();
  EXPECT_FALSE(lock_held());
  lock_released();
  EXPECT_EQ(recorded.size(), 8u);
}

}  // namespace
}  // namespace plov::frame
