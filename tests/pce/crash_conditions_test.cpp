// Crashes in the middle of what holds locks, under daemons that do not listen, of processes in odd surroundings.
#include <dlfcn.h>
#include <execinfo.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "pce.h"
#include "support/crash.h"
#include "support/daemon_client.h"
#include "support/doubles.h"
#include "xtr.h"

using namespace test;
using testing::HasSubstr;
using testing::Le;

namespace {

std::atomic<int>& waited = *static_cast<std::atomic<int>*>(
    mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));

// In the child.
bool time_flies;
bool faulty_collector, stuck_collector;
bool probe_is_interrupted;

}  // namespace

// Doubles of what the handlers call.
unsigned sleep(unsigned) {
  for (;;) pause();
}

int poll(pollfd* entries, nfds_t count, int timeout) {
  if (!time_flies) return REAL(poll)(entries, count, timeout);
  waited = timeout;
  return 0;
}

#ifndef __SANITIZE_THREAD__
int pthread_mutex_clocklock(pthread_mutex_t* mutex, clockid_t clock, const timespec* limit) {
  const auto real = REAL_TIME(pthread_mutex_clocklock);
  if (!time_flies) return real(mutex, clock, limit);
  timespec now;
  clock_gettime(clock, &now);
  waited = static_cast<int>(limit->tv_sec - now.tv_sec);
  return real(mutex, clock, &now);
}
#endif

int backtrace(void** addresses, int count) {
  if (faulty_collector) raise(SIGBUS);
  while (stuck_collector) pause();
  return REAL(backtrace)(addresses, count);
}

int timer_settime(timer_t timer, int flags, const itimerspec* times, itimerspec* before) {
  const itimerspec soon = {times->it_interval, {0, 1}};
  if (stuck_collector) waited = static_cast<int>(times->it_value.tv_sec);
  return REAL_TIME(timer_settime)(timer, flags, stuck_collector ? &soon : times, before);
}

int sigaction(int signal, const struct sigaction* action, struct sigaction* before) {
  const int rc = REAL(sigaction)(signal, action, before);
  if (probe_is_interrupted && action && signal == SIGSEGV) {
    probe_is_interrupted = false;
    raise(SIGQUIT);
  }
  return rc;
}

namespace {

template <class Death>
Visit crash(Death death, PceDaemon::Manner manner = PceDaemon::kAnswers) {
  return PceDaemon(manner).serve_child([&] {
    prepare(0);
    death();
    return 92;
  });
}

void keep_a_thread() {
  std::thread([] {
    for (;;) pause();
  }).detach();
}

TEST(CrashInside, TheAllocatorIsReported) {
  if (PLOV_SANITIZED) GTEST_SKIP() << "a sanitizer has an allocator of its own";
  // A chain of free blocks that leads nowhere: the next search along it faults, with the arena's lock in hand.
  const Visit visit = crash([] {
    keep_a_thread();                  // or there would be no lock
    static void* volatile blocks[2];  // the second one keeps the first from melting into what lies behind it
    for (auto& block : blocks) block = malloc(3000);
    free(blocks[0]);
    static_cast<void**>(blocks[0])[1] = nowhere;  // NOLINT(clang-analyzer-unix.Malloc): that is what breaks the chain
    blocks[1] = malloc(2000);
  });
  EXPECT_THAT(whole(visit, SIGSEGV).backtrace, HasSubstr("libc"));
}

TEST(CrashInside, ALoadIsReported) {
  setenv("PLOV_TEST_MODULE", "crashes", 1);
  const Visit visit = crash([] { dlopen(PLOV_BINARY_DIR "/libplovtest.so", RTLD_NOW); });
  EXPECT_THAT(whole(visit, SIGSEGV).backtrace, HasSubstr("libplovtest"));
}

TEST(CrashInside, AStreamIsReported) {
  const Visit visit = crash([] {
    cookie_io_functions_t functions = {};
    functions.write = [](void*, const char*, size_t) -> ssize_t {
      writes_nowhere();
      return 0;
    };
    FILE* const stream = fopencookie(nullptr, "w", functions);
    setvbuf(stream, nullptr, _IONBF, 0);
    fwrite("text", 1, 4, stream);
  });
  EXPECT_THAT(whole(visit, SIGSEGV).backtrace, HasSubstr("writes_nowhere"));
}

TEST(CrashInside, ATraceLineIsReported) {
  const Visit visit = crash([] { xtr_trace("%s", reinterpret_cast<const char*>(nowhere)); });
  EXPECT_THAT(whole(visit, SIGSEGV).backtrace, HasSubstr("xtr_trace"));
}

TEST(CrashInside, AProbeIsReported) {
  const Visit visit = crash([] {
    uint32_t comprc = 0;
    probe_is_interrupted = true;
    xpce_ckptr(&comprc, sizeof comprc, &comprc);
  });
  EXPECT_THAT(whole(visit, SIGQUIT).backtrace, HasSubstr("(sigaction+"));
}

TEST(CrashOf, TenThreadsIsReportedOnce) {
  const Visit visit = crash([] {
    static std::atomic<int> ready;
    for (int i = 0; i < 10; ++i)
      std::thread([] {
        for (++ready; ready < 10;) std::this_thread::yield();
        writes_nowhere();
      }).detach();
    for (;;) pause();
  });
  EXPECT_THAT(whole(visit, SIGSEGV).backtrace, HasSubstr("writes_nowhere"));
}

TEST(CrashOf, AThreadDoesNotWaitForeverForTheMutexOfAnother) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "this sanitizer takes another call for it";
#endif
  const Visit visit = crash([] {
    std::atomic<bool> held = false;
    std::thread([&] {
      pthread_mutex_lock(&xtr_mutex_sem);
      held = true;
      for (;;) pause();
    }).detach();
    while (!held) std::this_thread::yield();
    time_flies = true;
    writes_nowhere();
  });
  const Report report = whole(visit, SIGSEGV);
  EXPECT_THAT(report.backtrace, HasSubstr("writes_nowhere"));
  EXPECT_NE(report.after("1.At "), "");
  EXPECT_THAT(waited.exchange(0), testing::AllOf(testing::Ge(29), Le(30))) << "seconds";
}

TEST(CrashOf, TheCollectorByASecondBusErrorLeavesItsReport) {
  const Visit visit = crash([] {
    faulty_collector = true;
    raise(SIGBUS);
  });
  EXPECT_EQ(whole(visit, SIGBUS).backtrace, "Backtrace Unavailable due to trap in collect_btrace()");
}

TEST(CrashOf, TheCollectorsPatienceLeavesItsReport) {
  const Visit visit = crash([] {
    stuck_collector = true;
    writes_nowhere();
  });
  EXPECT_EQ(whole(visit, SIGSEGV).backtrace, "Backtrace Unavailable due to trap in collect_btrace()");
  EXPECT_EQ(waited.exchange(0), 10) << "seconds";
}

TEST(CrashUnder, ADaemonThatDoesNotReadEnds) {
  // What fits into the socket is read when the process has gone.
  whole(crash(writes_nowhere, PceDaemon::kReadsLater), SIGSEGV);
  const Visit full = crash(
      [] {
        const pce_wire_header filler = {sizeof filler, SMSG_GENERIC_ACK, 0, 0, 0};
        while (send(gl_daemon_sock, &filler, sizeof filler, MSG_DONTWAIT) > 0) continue;
        time_flies = true;
        writes_nowhere();
      },
      PceDaemon::kReadsLater);
  EXPECT_EQ(full.end, 1000 + SIGSEGV);
  EXPECT_TRUE(full.reports.empty());
  EXPECT_THAT(waited.exchange(0), testing::AllOf(testing::Gt(0), Le(30000))) << "milliseconds";
}

TEST(CrashUnder, NoDaemonEnds) {
  const Visit visit = crash([] {
    shutdown(gl_daemon_sock, SHUT_RDWR);
    setenv("PCE_TEMPDIR", "/nowhere", 1);
    writes_nowhere();
  });
  EXPECT_EQ(visit.end, 1000 + SIGSEGV);
  EXPECT_TRUE(visit.reports.empty());
}

TEST(CrashOf, ProcessOneOfANameSpaceEndsIt) {
  const struct {
    void (*die)();
    int signal, end;
  } ways[] = {{writes_nowhere, SIGSEGV, 1000 + SIGSEGV},
              {[] { raise(SIGQUIT); }, SIGQUIT, 128 + SIGQUIT},
              {[] { raise(SIGSEGV); }, SIGSEGV, 128 + SIGSEGV},
              {abort, SIGABRT, 128 + SIGABRT}};
  for (const auto& way : ways) {
    const Visit visit = PceDaemon().serve_child([&] {
      if (unshare(CLONE_NEWPID) != 0) return 77;
      const int end = in_child([&] {
        prepare(0);
        way.die();
        return 92;
      });
      return end == way.end ? 33 : 34;
    });
    if (visit.end == 77) GTEST_SKIP() << "NO PROCESS NAME SPACE to be had here";
    EXPECT_EQ(visit.end, 33);
    ASSERT_EQ(visit.reports.size(), 1u);
    EXPECT_EQ(visit.reports[0].signal, way.signal);
  }
}

TEST(CrashBy, TheSignalOfAnotherProcessIsReported) {
  const Visit visit = crash([] {
    const pid_t victim = getpid();
    start_child([=] { return kill(victim, SIGSEGV); });
    for (;;) pause();
  });
  whole(visit, SIGSEGV);
}

TEST(CrashBy, AnotherSignalIsReportedWithFaultsBlocked) {
  const auto block = [] {
    sigset_t faults;
    sigemptyset(&faults);
    sigaddset(&faults, SIGSEGV);
    pthread_sigmask(SIG_BLOCK, &faults, nullptr);
  };
  const auto fault = [=] {
    block();
    *nowhere = 1;
  };
  // The kernel lets nobody handle a blocked fault.
  const Visit blocked = crash(fault);
  EXPECT_EQ(blocked.end, 1000 + SIGSEGV);
  EXPECT_TRUE(blocked.reports.empty());
  whole(crash([=] {
          block();
          raise(SIGFPE);
        }),
        SIGFPE);
}

// The daemon itself, of either word size, and the tool that shows what it has recorded.
TEST(CrashOfAClient, IsShownFromTheDaemonOfEitherWordSize) {
  for (const std::string& program : {own_program("plovpced"), other_abi_program("plovpced")}) {
    const Daemon daemon("", program);
    daemon.line_with("listens");
    EXPECT_EQ(in_child([] {
                PceDaemon::make_plain();
                prepare(1);
                writes_nowhere();
                return 92;
              }),
              1000 + SIGSEGV);
    EXPECT_THAT(daemon.line_with("in the log"), HasSubstr("signal 11 is in the log"));
    const std::string shown = Process(own_program("plovctl") + " show --crash -n 1").rest();
    EXPECT_THAT(shown, HasSubstr("SIGSEGV (11)  Invalid memory access at 0x10\n"));
    EXPECT_THAT(shown, HasSubstr("crash_conditions_test\n"));
    EXPECT_THAT(shown, HasSubstr("permanent process, report 0x40C\n  thread tag  the tag\n"));
    EXPECT_THAT(shown, HasSubstr("struck at   writes_nowhere+0x"));
    EXPECT_THAT(shown, HasSubstr(sizeof(void*) == 4 ? "EIP" : "RIP"));
    EXPECT_THAT(shown, HasSubstr("<- xpce_set_user_tag:\n"));
  }
}

}  // namespace
