// Set-up and unset: counts, actions, alternate stacks, tags and registrations of processes and threads.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "pce.h"
#include "support/codes.h"
#include "support/doubles.h"
#include "support/log_calls.h"
#include "support/pce_daemon.h"
#include "support/traced.h"
#include "xpce.h"
#include "xtr.h"

using namespace test;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

bool no_alternate_stack;

}  // namespace

int32_t pce_sig_alt_stack(pce_call_record* record, const stack_t* stack) {
  if (!no_alternate_stack) return REAL(pce_sig_alt_stack)(record, stack);
  record->comprc = ENOMEM;
  record->sysrc = 8;
  return ENOMEM;
}

namespace {

struct sigaction new_action, old_action;

Codes set_up(uint16_t type = 0) {
  return codes(xpce_setup, type, &new_action, &old_action);
}

Codes unset() {
  return codes(xpce_unset, &new_action);
}

struct sigaction current(int signal) {
  struct sigaction action;
  sigaction(signal, nullptr, &action);
  return action;
}

size_t alternate_stack_size() {
  stack_t stack;
  sigaltstack(nullptr, &stack);
  return stack.ss_flags & SS_DISABLE ? 0 : stack.ss_size;
}

std::string newest_event() {
  const std::vector<ReadLog> logs = read_all();
  for (const Block& block : logs.front().blocks)
    if (block.id == 3) return block.bytes;
  return "";
}

// Runs in a child under the daemon; assertions in it work.
template <class Function>
Visit served(Function function, PceDaemon::Manner manner = PceDaemon::kAnswers) {
  Visit visit = PceDaemon(manner).serve_child([&] {
    function();
    return testing::Test::HasFailure() ? 1 : 0;
  });
  EXPECT_EQ(visit.end, 0);
  return visit;
}

TEST(Setup, FirstOfAProcessHandlesTheTenSignalsAndRegisters) {
  using Handler = void (*)(int, siginfo_t*, void*);
  constexpr Handler kHandlers[] = {xpce_tempHandler, xpce_permHandler, xpce_paHandler, xpce_noasyncHandler};
  for (uint16_t type = 0; type < 4; ++type) {
    const Visit visit = served([&] {
      signal(SIGPIPE, SIG_IGN);
      ::signal(SIGQUIT, [](int) {});
      const auto earlier = current(SIGQUIT).sa_handler;
      EXPECT_EQ(gl_daemon_sock, -1);
      EXPECT_EQ(set_up(type), Codes(0, 0));
      EXPECT_EQ(new_action.sa_sigaction, kHandlers[type]);
      EXPECT_EQ(new_action.sa_flags, SA_SIGINFO | SA_ONSTACK);
      EXPECT_GE(gl_daemon_sock, 0);
      for (int signal : kTheTen) EXPECT_EQ(current(signal).sa_sigaction == kHandlers[type], signal != SIGPIPE);
      EXPECT_EQ(current(SIGPIPE).sa_handler, SIG_IGN);
      EXPECT_EQ(alternate_stack_size(), 131386u);
      EXPECT_EQ(set_up(type), Codes(0, 0));
      EXPECT_EQ(unset(), Codes(0, 0));
      EXPECT_EQ(new_action.sa_sigaction, kHandlers[type]) << "cleared by the last unset only";
      EXPECT_EQ(unset(), Codes(0, 0));
      EXPECT_EQ(new_action.sa_sigaction, nullptr);
      EXPECT_EQ(alternate_stack_size(), 0u);
      EXPECT_EQ(current(SIGQUIT).sa_handler, earlier);
      EXPECT_EQ(current(SIGSEGV).sa_handler, SIG_DFL);
      EXPECT_EQ(gl_daemon_sock, -1);
      EXPECT_EQ(unset(), Codes(2, XPCE_NO_ACTIVE_SETUP));
    });
    EXPECT_THAT(visit.codes, ElementsAre(SMSG_REGISTER_REQ, SMSG_DEREGISTER_REQ));
    ASSERT_EQ(visit.registrations.size(), 1u);
    const pce_wire_register& message = visit.registrations[0];
    EXPECT_EQ(message.process_type, type);
    EXPECT_THAT(message.program_name, HasSubstr("setup_test"));
    EXPECT_NE(message.header.pid, static_cast<uint32_t>(getpid()));
    EXPECT_EQ(message.header.tid, message.header.pid);
  }
}

TEST(Setup, OfAnUnknownTypeIsRefusedAndHoldsAllTheSame) {
  const Visit visit = served([] {
    EXPECT_EQ(set_up(7), Codes(2, XPCE_BAD_PROCESS_TYPE));
    EXPECT_EQ(current(SIGSEGV).sa_sigaction, xpce_tempHandler);
    EXPECT_EQ(unset(), Codes(0, 0));
    EXPECT_EQ(unset(), Codes(2, XPCE_NO_ACTIVE_SETUP));
    EXPECT_THAT(traced(), HasSubstr("XPCE*SOF:    xpce_setup: src= 0x2, crc= 0x7D2"));
    EXPECT_THAT(newest_event(), HasSubstr("(702) Invalid process type of 0x7 passed to\nxpce_setup()"));
  });
  EXPECT_EQ(visit.registrations.at(0).process_type, 0);
}

TEST(Setup, WithoutADaemonUndoesAll) {
  { const PceDaemon gone; }
  EXPECT_EQ(in_child([] {
              signal(SIGSEGV, SIG_DFL);
              EXPECT_EQ(set_up(), Codes(8, XPCE_NOT_REGISTERED));
              EXPECT_EQ(current(SIGSEGV).sa_handler, SIG_DFL);
              EXPECT_EQ(alternate_stack_size(), 0u);
              EXPECT_EQ(gl_daemon_sock, -1);
              EXPECT_EQ(unset(), Codes(2, XPCE_NO_ACTIVE_SETUP));
              EXPECT_THAT(newest_event(), HasSubstr("(713) Unable to send registration request to"));
              setenv("PCE_TEMPDIR", ("/" + std::string(100, 'p')).c_str(), 1);
              EXPECT_EQ(set_up(), Codes(8, XPCE_NOT_REGISTERED)) << "a path that no address can hold";
              return testing::Test::HasFailure() ? 1 : 0;
            }),
            0);
}

TEST(Setup, GivesASquatterNothing) {
  const Visit visit = served([] {
    chmod(".", 0777);  // anybody may have put the socket there
    EXPECT_EQ(set_up(), Codes(8, XPCE_NOT_REGISTERED));
    chmod(".", 0700);
  });
  EXPECT_TRUE(visit.codes.empty());
}

TEST(Setup, MissingAcknowledgementChangesNothing) {
  served(
      [] {
        EXPECT_EQ(set_up(), Codes(0, 0));
        EXPECT_EQ(current(SIGSEGV).sa_sigaction, xpce_tempHandler);
        EXPECT_EQ(unset(), Codes(8, XPCE_NOT_DEREGISTERED)) << "the daemon has gone meanwhile";
        EXPECT_EQ(current(SIGSEGV).sa_handler, SIG_DFL);
        EXPECT_EQ(gl_daemon_sock, -1);
      },
      PceDaemon::kLeavesUnanswered);
}

TEST(Setup, EachThreadHasACountAndAStackOfItsOwn) {
  const Visit visit = served([] {
    EXPECT_EQ(set_up(), Codes(0, 0));
    std::thread([] {
      EXPECT_EQ(unset(), Codes(2, XPCE_NO_THREAD_SETUP));
      EXPECT_NE(alternate_stack_size(), 131386u);
      EXPECT_EQ(set_up(), Codes(0, 0));
      EXPECT_EQ(alternate_stack_size(), 131386u);
      EXPECT_EQ(unset(), Codes(0, 0));
      EXPECT_EQ(alternate_stack_size(), 0u);
      EXPECT_EQ(set_up(), Codes(0, 0));
      EXPECT_EQ(set_up(), Codes(0, 0));
    }).join();
    EXPECT_THAT(newest_event(), HasSubstr("number of xpce_unsets. Active Thread Count= 2"));
    EXPECT_EQ(unset(), Codes(0, 0));
    EXPECT_EQ(unset(), Codes(2, XPCE_NO_ACTIVE_SETUP)) << "the thread took its two with it";
    // The last set-up of all goes with its thread.
    std::thread([] { EXPECT_EQ(set_up(3), Codes(0, 0)); }).join();
    EXPECT_EQ(current(SIGSEGV).sa_handler, SIG_DFL);
    EXPECT_EQ(gl_daemon_sock, -1);
  });
  EXPECT_THAT(visit.codes, ElementsAre(SMSG_REGISTER_REQ, SMSG_DEREGISTER_REQ, SMSG_REGISTER_REQ, SMSG_DEREGISTER_REQ));
}

TEST(Setup, ThatFailsInASecondThreadCountsNowhere) {
  served([] {
    EXPECT_EQ(set_up(), Codes(0, 0));
    std::thread([] {
      no_alternate_stack = true;
      EXPECT_EQ(set_up(), Codes(8, ENOMEM));
      no_alternate_stack = false;
      EXPECT_EQ(unset(), Codes(2, XPCE_NO_THREAD_SETUP));
    }).join();
    EXPECT_EQ(unset(), Codes(0, 0));
    EXPECT_EQ(current(SIGSEGV).sa_handler, SIG_DFL) << "it was the last one";
  });
}

TEST(Setup, EventsWaitForTheLogLock) {
  { const PceDaemon gone; }
  uint32_t comprc;
  const size_t before = read_all().size();
  ASSERT_EQ(xlog_access_sem(XLOG_SEM_LOCK, &comprc), 0);
  EXPECT_EQ(set_up(), Codes(8, XPCE_NOT_REGISTERED));
  EXPECT_EQ(read_all().size(), before);
  ASSERT_EQ(xlog_access_sem(XLOG_SEM_UNLOCK, &comprc), 0);
  ASSERT_EQ(read_all().size(), before + 1);
  EXPECT_THAT(newest_event(), HasSubstr("(713) Unable to send registration request to"));
}

TEST(Setup, HundredsOfThreadsLeaveTheCountsRight) {
  const Visit visit = served([] {
    EXPECT_EQ(set_up(XPCE_PROC_NOASYNC), Codes(0, 0));
    for (int round = 0; round < 5; ++round) {
      std::vector<std::thread> threads;
      for (int number = 0; number < 60; ++number)
        threads.emplace_back([number] {
          struct sigaction action, cleared;
          uint32_t comprc;
          for (int i = 0; i <= number % 3; ++i) {
            EXPECT_EQ(xpce_setup(XPCE_PROC_NOASYNC, &action, &cleared, &comprc), 0);
            EXPECT_EQ(xpce_set_user_tag(("thread " + std::to_string(number)).c_str(), &comprc), 0);
          }
          for (int i = 0; i < number % 2; ++i) EXPECT_EQ(xpce_unset(&action, &comprc), 0);  // of some, not of all
        });
      for (std::thread& thread : threads) thread.join();
    }
    EXPECT_EQ(unset(), Codes(0, 0));
    EXPECT_EQ(unset(), Codes(2, XPCE_NO_ACTIVE_SETUP));
  });
  EXPECT_THAT(visit.codes, ElementsAre(SMSG_REGISTER_REQ, SMSG_DEREGISTER_REQ));
}

TEST(Tag, OfAWrongLengthIsRefusedAndStored) {
  EXPECT_EQ(codes(xpce_set_user_tag, std::string(82, 't').c_str()), Codes(0, 0));
  EXPECT_EQ(codes(xpce_set_user_tag, ""), Codes(2, XPCE_BAD_TAG_LENGTH));
  EXPECT_EQ(codes(xpce_set_user_tag, std::string(200, 't').c_str()), Codes(2, XPCE_BAD_TAG_LENGTH));
  const auto* record = static_cast<const char*>(pthread_getspecific(gl_thd_data_key));
  const size_t place = sizeof(void*) == 4 ? 131404 : 131408;
  EXPECT_EQ(std::string(record + place), std::string(83, 't'));
}

void exit_1(int, siginfo_t*, void*) {}
void exit_2(int, siginfo_t*, void*) {}

TEST(UserExits, AreRegisteredOnce) {
  EXPECT_EQ(codes(xpce_add_user_exit, exit_1), Codes(0, 0));
  EXPECT_EQ(codes(xpce_add_user_exit, exit_2), Codes(0, 0));
  EXPECT_EQ(codes(xpce_add_user_exit, exit_1), Codes(2, 0));
  EXPECT_EQ(codes(xpce_remove_user_exit, exit_1), Codes(0, 0));
  EXPECT_EQ(codes(xpce_remove_user_exit, exit_1), Codes(2, 0));
  EXPECT_EQ(codes(xpce_remove_user_exit, exit_2), Codes(0, 0));
  pthread_mutex_lock(&xtr_mutex_sem);
  EXPECT_EQ(codes(xpce_add_user_exit, exit_1), Codes(2, EDEADLK));
  EXPECT_EQ(set_up(), Codes(8, XPCE_NO_LOCK));
  pthread_mutex_unlock(&xtr_mutex_sem);
}

}  // namespace
