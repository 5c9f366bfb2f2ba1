// Real children; only the pauses between the looks are not real.
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/child.h"
#include "support/codes.h"
#include "support/doubles.h"
#include "support/pages.h"
#include "support/traced.h"
#include "xmis.h"

using test::Codes;
using test::codes;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

std::vector<unsigned> pauses;
unsigned polls;
bool until_a_child_ends;
int failing_with;  // errno of waitpid

}  // namespace

extern "C" unsigned sleep(unsigned seconds) {
  pauses.push_back(seconds);
  siginfo_t information;
  if (until_a_child_ends) waitid(P_ALL, 0, &information, WEXITED | WNOWAIT);
  return 0;
}

extern "C" pid_t waitpid(pid_t pid, int* status, int options) {
  if (options & WNOHANG) ++polls;
  if (failing_with) return errno = failing_with, -1;
  return REAL(waitpid)(pid, status, options);
}

namespace {

struct Spawned : xmis_spawn_parameters {
  Codes result;
  std::string trace;  // of this call
};

Spawned spawn(std::vector<std::string> words, int32_t flags = 0, uint32_t limit = 0, char** envp = nullptr) {
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  Spawned run = {{argv[0], argv.data(), envp, flags, limit, -1, -1, 0xDEAD}, {}, {}};
  const size_t before = test::traced().size();
  pauses.clear();
  polls = 0;
  run.result = codes(xmis_spawn_pgm, static_cast<xmis_spawn_parameters*>(&run));
  run.trace = test::traced().substr(before);
  return run;
}

Spawned wait(std::vector<std::string> words, char** envp = nullptr) {
  until_a_child_ends = true;
  Spawned run = spawn(std::move(words), XMIS_SPAWN_WAIT, 12, envp);
  until_a_child_ends = false;
  return run;
}

std::vector<std::string> lines(const std::string& trace) {
  std::vector<std::string> texts;
  for (size_t at = 0, tag; (tag = trace.find("XMIS***", at)) != std::string::npos;) {
    at = trace.find('\n', tag);
    texts.push_back(trace.substr(tag + 7, at - tag - 7));
  }
  return texts;
}

constexpr Codes kDone(0, 0);

TEST(Spawn, HandsBackTheRawStatus) {
  const Spawned three = wait({"sh", "-c", "exit 3"});
  EXPECT_EQ(three.result, kDone);
  EXPECT_EQ(three.status, 0x300);
  EXPECT_EQ(three.reason, 0u);
  EXPECT_GT(three.pid, 0);
  EXPECT_THAT(three.trace, HasSubstr(": WIFEXITED = 1,  WEXITSTATUS= 3, WIFSIGNALED= 0, WTERMSIG= 0\n"));
  EXPECT_EQ(wait({"sh", "-c", "kill -TERM $$"}).status, SIGTERM);
  EXPECT_EQ(REAL(waitpid)(-1, nullptr, 0), -1) << "both are reaped";
}

TEST(Spawn, WithoutTheWaitReturnsAtOnce) {
  const Spawned run = spawn({"true"}, 0, 100);
  EXPECT_EQ(run.result, kDone);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(polls, 0u);
  EXPECT_EQ(test::wait_for(run.pid), 0);
  EXPECT_THAT(lines(run.trace), ElementsAre("T: -> xmis_spawn_pgm:", "D: -> chk_spawn_intf:", "D: <- chk_spawn_intf:",
                                            "D: -> do_spawn_pgm: Got Here for >true<",
                                            "D: <- do_spawn_pgm:", "T: <- xmis_spawn_pgm: Leaving"));
}

TEST(Spawn, LooksOnScheduleAndLeavesTheChildRunning) {
  const std::pair<uint32_t, std::vector<unsigned>> cases[] = {
      {0, {0}}, {4, {4}}, {5, {5, 0}}, {12, {5, 5, 2}}, {15, {5, 5, 5, 0}}};
  for (const auto& [limit, expected] : cases) {
    const Spawned run = spawn({"sleep", "1000"}, XMIS_SPAWN_WAIT, limit);
    EXPECT_EQ(run.result, Codes(2, XMIS_STILL_RUNNING)) << limit;
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.reason, 0u);
    EXPECT_EQ(pauses, expected) << limit;
    EXPECT_EQ(polls, expected.size() + 1) << limit;
    EXPECT_EQ(kill(run.pid, SIGKILL), 0) << "still there";
    EXPECT_EQ(test::wait_for(run.pid), 1000 + SIGKILL);
    if (limit != 5) continue;
    char pid[16];
    snprintf(pid, sizeof pid, "0x%X", static_cast<unsigned>(run.pid));
    const std::string looked = std::string("F:    wait_for_end: waitpid returned 0 for pid ") + pid;
    EXPECT_THAT(
        lines(run.trace),
        ElementsAre("T: -> xmis_spawn_pgm:", "D: -> chk_spawn_intf:", "D: <- chk_spawn_intf:",
                    "D: -> do_spawn_pgm: Got Here for >sleep<",
                    std::string("D: -> wait_for_end: Got Here for pid ") + pid, looked + ", iteration 1, time_left= 5",
                    looked + ", iteration 2, time_left= 0", looked + ", iteration 3, time_left= 4294967291",
                    "D: <- wait_for_end:", "D: <- do_spawn_pgm:",
                    "F:    xmis_spawn_pgm: src= 0x2, crc= 0x102, reason= 0", "T: <- xmis_spawn_pgm: Leaving"));
  }
}

TEST(Spawn, PassesTheEnvironment) {
  setenv("PLOV_OURS", "ours", 1);
  char given[] = "PLOV_OURS=given";
  char* envp[] = {given, nullptr};
  const std::vector<std::string> command = {"sh", "-c", "test \"$PLOV_OURS\" = ours"};
  EXPECT_EQ(wait(command).status, 0);
  EXPECT_EQ(wait(command, envp).status, 0x100);
}

TEST(Spawn, SaysWhyItFailed) {
  const Spawned absent = spawn({"plov-no-such-program", "x"});
  EXPECT_EQ(absent.result, Codes(2, XMIS_SPAWN_FAILED));
  EXPECT_EQ(absent.reason, static_cast<uint32_t>(ENOENT));
  EXPECT_EQ(absent.pid, 0);
  EXPECT_THAT(lines(absent.trace),
              testing::IsSupersetOf({"F:    do_spawn_pgm: posix_spawnp returned rc= 2",
                                     "F:                :    reason is 'No such file or directory'",
                                     "F:    xmis_spawn_pgm: src= 0x2, crc= 0x100, reason= 2"}));
  failing_with = EINVAL;
  const Spawned unwaited = wait({"true"});
  failing_with = 0;
  EXPECT_EQ(unwaited.result, Codes(2, XMIS_WAIT_FAILED));
  EXPECT_EQ(unwaited.reason, static_cast<uint32_t>(EINVAL));
  EXPECT_THAT(unwaited.trace, HasSubstr("   wait_for_end: waitpid returned -1, reason is Invalid argument\n"));
  EXPECT_EQ(test::wait_for(unwaited.pid), 0);

  signal(SIGCHLD, SIG_IGN);
  const Spawned vanished = wait({"true"});
  EXPECT_EQ(vanished.result, Codes(2, XMIS_CHILD_VANISHED));
  EXPECT_EQ(vanished.reason, static_cast<uint32_t>(ECHILD));
  EXPECT_EQ(vanished.status, 0);
}

TEST(Spawn, ChecksInItsOrder) {
  const test::Pages closed(1, PROT_NONE), open(1, PROT_READ | PROT_WRITE);
  auto* const nowhere = reinterpret_cast<char*>(closed.begin());
  auto* const lists = reinterpret_cast<char**>(nowhere);
  char word[] = "true";
  const auto refused = [](xmis_spawn_parameters parameters, uint32_t code, bool cleared) {
    parameters.pid = parameters.status = 7;
    parameters.reason = 7;
    EXPECT_EQ(codes(xmis_spawn_pgm, &parameters), Codes(2, code));
    EXPECT_EQ(parameters.pid, cleared ? 0 : 7) << code;
    EXPECT_EQ(parameters.status, cleared ? 0 : 7) << code;
    EXPECT_EQ(parameters.reason, 0u) << code;
  };
  refused({nowhere, lists, lists, 1, 0, 0, 0, 0}, XMIS_BAD_FLAGS, false);
  refused({nowhere, lists, lists, XMIS_SPAWN_WAIT | 0x40000000, 0, 0, 0, 0}, XMIS_BAD_FLAGS, false);
  refused({nowhere, lists, lists, 0, 0, 0, 0, 0}, XMIS_BAD_PROGRAM, false);
  refused({"", lists, lists, 0, 0, 0, 0, 0}, XMIS_BAD_PROGRAM, false);
  refused({word, lists, lists, 0, 0, 0, 0, 0}, XMIS_BAD_ENVIRONMENT, false);
  refused({word, nullptr, nullptr, 0, 0, 0, 0, 0}, XMIS_BAD_ARGUMENTS, true);
  char** const endless = reinterpret_cast<char**>(open.end()) - 3;
  endless[0] = endless[1] = endless[2] = word;
  refused({word, endless, nullptr, 0, 0, 0, 0, 0}, XMIS_BAD_ARGUMENTS, true);
  EXPECT_EQ(REAL(waitpid)(-1, nullptr, WNOHANG), -1) << "nothing was started";
}

}  // namespace
