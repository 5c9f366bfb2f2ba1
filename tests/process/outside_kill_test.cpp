// Making room, killed from outside: a tracer kills the process at each system call that changes a log's files, or fails
// that call. Unlike room_crash_test, which ends the process inside the C library's functions, it stops at what really
// reaches the kernel, on what stdio had in its buffers then.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdio.h>

#include <algorithm>
#include <functional>
#include <set>
#include <sstream>
#include <utility>

#include "support/files.h"
#include "support/full_log.h"
#include "support/log_calls.h"
#include "support/sanitized.h"
#include "support/worker.h"

using namespace test;

namespace {

const std::string kLog = data_path("wexolog.log");
constexpr int kKilled = 128 + SIGKILL;

// Of both word sizes; one that a kernel or a word size lacks is passed over.
constexpr char kChanging[] =
    "write,openat,?pwrite64,?writev,?rename,?renameat,?renameat2,?unlink,?unlinkat,?ftruncate,?ftruncate64,?chmod,"
    "?fchmod,?fchmodat,?chown,?chown32,?fchown,?fchown32,?fchownat,?link,?linkat,?utimensat,?utimensat_time64";

bool leftovers() {
  for (const auto& [path, bytes] : log_files())
    if (path.ends_with(".new") || path.ends_with(".init")) return true;
  return false;
}

int run(const std::string& command) {
  return Process(command + " >/dev/null 2>&1").wait();
}

int run_traced(const std::string& program, const std::string& options) {
  std::string command = "strace -f -qq -o trace " + options;
  for (const char* const name : {"wexolog.log", "wexocom0.log", "wexocom1.log", "wexoe4.log", "wexotsd.log"})
    for (const char* const suffix : {"", ".new", ".init"}) command += " -P " + data_path(name) + suffix;
  return run(command + " " + program);
}

// The calls by which the program changes the logs' files, or opens them.
std::set<std::string> calls_of(const std::string& program) {
  EXPECT_EQ(run_traced(program, std::string("-e trace=") + kChanging), 0);
  std::set<std::string> calls;
  std::istringstream lines(read_file("trace"));
  for (std::string process, call, rest;
       lines >> process && getline(lines >> std::ws, call, '(') && getline(lines, rest);)
    calls.insert(call);
  return calls;
}

// The k-th `call` of the program on one of the logs' files meets `fate`. False when there is none.
bool meets(const std::string& program, const std::string& call, const std::string& fate, int k, int* end) {
  *end = run_traced(program, "-e trace=" + call + " -e inject=" + call + ":" + fate + ":when=" + std::to_string(k));
  return *end == kKilled || read_file("trace").find("(INJECTED)") != std::string::npos;
}

// The events of a log but those that tell of the log itself.
std::set<std::string> events(const std::string& target = "") {
  std::set<std::string> events;
  for (const ReadLog& log : read_all(target)) {
    if (log.eventid.classes == 0 || log.eventid.classes == 0xFF) continue;
    std::string event(reinterpret_cast<const char*>(&log.eventid), sizeof log.eventid);
    for (const Block& block : log.blocks) event += block.bytes;
    EXPECT_TRUE(events.insert(event).second) << "an event is there twice";
  }
  return events;
}

bool holds(const std::set<std::string>& all, const std::set<std::string>& some) {
  return std::includes(all.begin(), all.end(), some.begin(), some.end());
}

class OutsideKill : public testing::Test {
 protected:
  void SetUp() override {
    if (PLOV_SANITIZED) GTEST_SKIP() << "the sanitizers' own tracing and a tracer exclude each other";
    if (run("strace -f -qq -o /dev/null -e trace=write true") != 0)
      GTEST_SKIP() << "nothing can be traced on this machine: strace is missing, or ptrace is refused";
    configure_full_log();
  }

  // What an undisturbed process makes of these files.
  void begin_with(const Files& before) {
    before_ = before;
    put_back(before_);
    ASSERT_EQ(run(record_), 0);
    after_ = read_file(kLog);
  }

  // `check` sees what each kill has left.
  void kill_at_each_call(const std::string& program, const Files& begin,
                         const std::function<void(const std::string&)>& check) {
    put_back(begin);
    for (const std::string& call : calls_of(program))
      for (int k = 1; !HasFailure(); ++k) {
        put_back(begin);
        int end;
        const bool met = meets(program, call, "signal=KILL", k, &end);
        EXPECT_EQ(end, met ? kKilled : 0);
        if (!met) break;
        ++points_;
        check("killed at " + call + " " + std::to_string(k));
      }
  }

  // A process of the other word size repairs, if there is something to repair; the next record then leads to the same
  // file.
  void expect_the_same_in_the_end(const std::string& where) {
    EXPECT_EQ(run(reader_), 0) << where;
    EXPECT_EQ(check_log(kLog), 0) << where;
    if (read_file(kLog) != after_) {
      EXPECT_EQ(run(record_), 0) << where;
    }
    EXPECT_TRUE(read_file(kLog) == after_) << where;
    EXPECT_FALSE(leftovers()) << where;
  }

  const std::string record_ = own_program("log_worker") + " 0 1 1 1700000000";
  const std::string reader_ = other_abi_program("log_reader");
  Files before_;
  std::string after_;
  int points_ = 0;
};

TEST_F(OutsideKill, AtEachCallOfMakingRoomAndOfTheRepair) {
  begin_with({{kLog, log_filled_to(20000).bytes()}});
  ASSERT_LT(after_.size(), 15000u);
  int repairs = 0;
  kill_at_each_call(record_, before_, [&](const std::string& where) {
    const Files left = log_files();
    if (half_done(kLog)) {
      ++repairs;
      kill_at_each_call(reader_, left,
                        [&](const std::string& again) { expect_the_same_in_the_end(where + ", then " + again); });
      put_back(left);
    }
    expect_the_same_in_the_end(where);
  });
  printf("%d kills, %d of them with a repair to be done\n", points_, repairs);
  EXPECT_GE(repairs, 2);
  EXPECT_GE(points_, 30);
}

// The event is there whole, or not at all.
TEST_F(OutsideKill, AtEachCallOfARecord) {
  for (const bool creating : {false, true}) {
    begin_with(creating ? Files() : Files{{kLog, log_filled_to(3000).bytes()}});
    put_back(before_);
    const auto recorded = creating ? std::set<std::string>() : events();
    kill_at_each_call(record_, before_, [&](const std::string& where) {
      if (exists(kLog)) {
        EXPECT_EQ(check_log(kLog), 0) << where;
        EXPECT_TRUE(read_file(kLog) == after_ || events() == recorded) << where;
      }
      if (read_file(kLog) != after_) {
        EXPECT_EQ(run(record_), 0) << where;
      }
      EXPECT_TRUE(read_file(kLog) == after_) << where;
      EXPECT_FALSE(leftovers()) << where;
    });
  }
  printf("%d kills\n", points_);
  EXPECT_GE(points_, 15);
}

// Whatever a killed deletion has left, the events that were to stay are there, and it can be done again.
TEST_F(OutsideKill, AtEachCallOfAPurgeAndAPrune) {
  struct Case {
    std::string target, command;
    LogFile log;
  };
  for (const Case& c : {Case{"log", "purge --class 0x10 --class 0x12", log_filled_to(6000)},
                        Case{"e4", "prune", log_filled_to(9000, LogFile::kE4)}}) {
    const std::string log = data_path("wexo" + c.target + ".log"), program = own_program("plovctl") + " " + c.command;
    const Files before = {{log, c.log.bytes()}};
    put_back(before);
    const auto all = events(c.target);
    ASSERT_EQ(run(program), 0);
    const auto kept = events(c.target);
    ASSERT_LT(kept.size(), all.size());
    kill_at_each_call(program, before, [&](const std::string& where) {
      EXPECT_EQ(run(reader_ + " " + c.target), 0) << where;
      EXPECT_EQ(check_log(log), 0) << where;
      EXPECT_TRUE(holds(events(c.target), kept)) << where;
      EXPECT_EQ(run(program), 0) << where;
      EXPECT_EQ(check_log(log), 0) << where;
      EXPECT_FALSE(leftovers()) << where;
    });
  }
  printf("%d kills\n", points_);
  EXPECT_GE(points_, 30);
}

TEST_F(OutsideKill, AtEachCallOfATrim) {
  LogFile log;
  while (log.header.file_size <= XLOG_TRIM_SIZE) log.add({.blocks = {stored(0x20, std::string(50000, 't'))}});
  const Files before = {{kLog, log.bytes()}};
  put_back(before);
  const std::string copy = console_path() + "copy", program = own_program("plovctl") + " trim " + copy;
  ASSERT_EQ(run(program), 0);
  const std::string trimmed = read_file(copy);
  kill_at_each_call(program, before, [&](const std::string& where) {
    EXPECT_TRUE(read_file(kLog) == before.at(kLog)) << where;
    EXPECT_EQ(run(program), 0) << where;
    EXPECT_TRUE(read_file(copy) == trimmed) << where;
    EXPECT_EQ(log_files().size(), 1u) << where;
    remove(copy.c_str());
  });
  printf("%d kills\n", points_);
  EXPECT_GE(points_, 15);
}

// The call that fails has its code, and the next record finds a good log with all that was to be kept.
TEST_F(OutsideKill, AtNoCallButOneFails) {
  begin_with({{kLog, log_filled_to(20000).bytes()}});
  const auto kept = events();
  constexpr std::pair<const char*, const char*> kFailures[] = {
      {"write", "error=ENOSPC"}, {"write", "error=EIO"}, {"openat", "error=EMFILE"}, {"rename", "error=EIO"}};
  for (const auto& [call, fate] : kFailures)
    for (int k = 1; !HasFailure(); ++k) {
      put_back(before_);
      int end;
      if (!meets(record_, call, fate, k, &end)) break;
      const std::string where = std::string(fate) + " at " + call + " " + std::to_string(k);
      EXPECT_LE(end, 1) << where;
      ++points_;
      EXPECT_EQ(run(reader_), 0) << where;
      if (end != 0) {
        EXPECT_EQ(run(record_), 0) << where;
      }
      EXPECT_EQ(check_log(kLog), 0) << where;
      EXPECT_TRUE(holds(events(), kept)) << where;
      EXPECT_FALSE(leftovers()) << where;
    }
  printf("%d failing calls\n", points_);
  EXPECT_GE(points_, 30);
}

}  // namespace
