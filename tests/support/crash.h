// Children that crash, and what all their reports have in common.
#ifndef PLOV_TESTS_CRASH_H
#define PLOV_TESTS_CRASH_H

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <string.h>
#include <sys/resource.h>
#include <unistd.h>

#include <string>

#include "support/pce_daemon.h"
#include "support/sanitized.h"
#include "xpce.h"

// Their names are looked for in the backtraces. Statements behind the last call keep it from being a jump.
#define WAY_TO_DIE extern "C" __attribute__((noinline, no_sanitize("address", "thread", "undefined"))) inline void

inline int* volatile nowhere = reinterpret_cast<int*>(0x10);
WAY_TO_DIE writes_nowhere() {
  *nowhere = 1;
}

namespace test {

inline struct sigaction new_action, old_action;

// What every child does first.
inline void prepare(uint16_t type) {
  alarm(200);
  const rlimit no_core = {};
  setrlimit(RLIMIT_CORE, &no_core);
  uint32_t comprc;
  if (xpce_setup(type, &new_action, &old_action, &comprc) != 0) _exit(91);
  xpce_set_user_tag("the tag", &comprc);
}

// The one report of a visit, whole and true as far as all of them are.
inline Report report_of(const Visit& visit, int signal, uint32_t report_id = 0x40A, uint32_t process_trace = 40960) {
  using testing::HasSubstr;
  EXPECT_EQ(visit.reports.size(), 1u);
  if (visit.reports.size() != 1) return {};
  const Report& report = visit.reports[0];
  EXPECT_EQ(report.signal, signal);
  EXPECT_EQ(report.report_id, report_id);
  EXPECT_EQ(report.header.length, 113194u);
  EXPECT_EQ(report.header.pid, visit.registrations.at(0).header.pid);
  EXPECT_EQ(report.after("Exception Number: "), std::to_string(signal));
  EXPECT_THAT(report.after("Program name is >"), HasSubstr(std::string(program_invocation_short_name) + "<"));
  EXPECT_NE(report.after("EFLG:"), "");
  EXPECT_EQ(visit.newest->process_trace_length, process_trace);
  EXPECT_EQ(visit.newest->thread_trace_length, 40960u);
  EXPECT_THAT(visit.newest->thread_trace, HasSubstr("exception handler running with signal"));
  return report;
}

// And the child ended by its signal.
inline Report whole(const Visit& visit, int signal, uint32_t report_id = 0x40A) {
  EXPECT_EQ(visit.end, 1000 + signal);
  return report_of(visit, signal, report_id);
}

}  // namespace test

#endif
