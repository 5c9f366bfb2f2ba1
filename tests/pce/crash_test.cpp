// Crashes of set-up processes. Each child ends by the signal that it got, under the action of before, and leaves one
// whole and true report with the daemon.
#include <alloca.h>
#include <execinfo.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <random>
#include <thread>

#include "pce.h"
#include "support/crash.h"
#include "support/doubles.h"
#include "support/files.h"
#include "xlog.h"
#include "xpce.h"
#include "xtr.h"

using namespace test;
using testing::HasSubstr;

namespace {

// What the children tell, beside their reports.
struct Told {
  std::atomic<int> exits[3];
  std::atomic<unsigned> slept;
  std::atomic<int> allocations;
  std::atomic<size_t> stack_left;
  std::atomic<bool> in_place;
  char directory[4096];
};
Told& told =
    *static_cast<Told*>(mmap(nullptr, sizeof(Told), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));

bool counting_allocations;  // in the child
bool faulty_collector;
bool trace_is_gone;
bool ownerless_mutex;
std::function<unsigned()> in_sleep;

}  // namespace

// Doubles of what the handlers call.
unsigned sleep(unsigned seconds) {
  told.slept = seconds;
  return in_sleep ? in_sleep() : 0;
}

int backtrace(void** addresses, int count) {
  if (faulty_collector) *nowhere = 1;
  return REAL(backtrace)(addresses, count);
}

int32_t xtr_fetch_pid(char* buffer, uint32_t n, uint32_t width, uint32_t* count, uint32_t* code) {
  return trace_is_gone ? 8 : REAL(xtr_fetch_pid)(buffer, n, width, count, code);
}

int pthread_mutex_lock(pthread_mutex_t* mutex) {
  static const auto real = REAL(pthread_mutex_lock);
  const int rc = real(mutex);
  if (ownerless_mutex && mutex == &xtr_mutex_sem) {
    // A signal between the two steps of taking the mutex.
    mutex->__data.__owner = 0;
    raise(SIGQUIT);
  }
  return rc;
}

#if !PLOV_SANITIZED
extern "C" void* __libc_malloc(size_t);
void* malloc(size_t size) {
  if (counting_allocations) ++told.allocations;
  return __libc_malloc(size);
}
#endif

void (*volatile no_function)();
WAY_TO_DIE calls_null() {
  no_function();
  asm volatile("");
}

WAY_TO_DIE calls_a_hole() {
  no_function = reinterpret_cast<void (*)()>(0x4000);
  no_function();
  asm volatile("");
}

WAY_TO_DIE overflows_the_stack() {
  for (;;) *static_cast<volatile char*>(alloca(1024)) = 0;
}

WAY_TO_DIE loses_its_frames() {
#ifdef __i386__
  asm volatile("movl $0x11, %%ebp; movl $1, 0x10" ::: "memory");
#else
  asm volatile("movq $0x11, %%rbp; movl $1, 0x10" ::: "memory");
#endif
}

WAY_TO_DIE divides_by_zero() {
  volatile int zero = 0, one = 1;
  one = one / zero;
}

WAY_TO_DIE corrupts_the_heap() {
  char* volatile block = static_cast<char*>(malloc(24));
  free(block);
  free(block);
  asm volatile("");
}

namespace {

template <int number>
void user_exit(int, siginfo_t*, void*) {
  ++told.exits[number];
}

void add_exits() {
  uint32_t comprc;
  for (auto exit : {user_exit<0>, user_exit<1>, user_exit<2>}) xpce_add_user_exit(exit, &comprc);
}

// In place of the three.
void only_exit(xpce_user_exit exit) {
  uint32_t comprc;
  for (auto one : {user_exit<0>, user_exit<1>, user_exit<2>}) xpce_remove_user_exit(one, &comprc);
  xpce_add_user_exit(exit, &comprc);
}

class Crash : public testing::Test {
 protected:
  void SetUp() override {
    memset(static_cast<void*>(&told), 0, sizeof told);
    alarm(200);
  }

  // A child of that type which dies so.
  template <class Death>
  Visit crash(Death death, uint16_t type = 0, PceDaemon::Manner manner = PceDaemon::kAnswers) {
    return PceDaemon(manner).serve_child([&] {
      prepare(type);
      add_exits();
      death();
      return 92;
    });
  }

  // Since the last look.
  void expect_exits(int first) {
    EXPECT_EQ(told.exits[0].exchange(0), first);
    EXPECT_EQ(told.exits[1], 0) << "installed programs register a chain and expect one call";
    EXPECT_EQ(told.exits[2], 0);
  }
};

TEST_F(Crash, OfEachSignalInEachProcessTypeIsReported) {
  constexpr uint32_t kIds[] = {0x40A, 0x40C, 0x400, 0x40E};
  for (uint16_t type = 0; type < 4; ++type)
    for (size_t i = 0; i < std::size(kTheTen); ++i) {
      SCOPED_TRACE(testing::Message() << "type " << type << ", signal " << kTheTen[i]);
      const Visit visit = crash([&] { raise(kTheTen[i]); }, type);
      expect_exits(1);
      if (kTheTen[i] == SIGTERM) {
        EXPECT_EQ(visit.end, 1000 + SIGTERM);
        EXPECT_TRUE(visit.reports.empty()) << "ended on request, which is no event";
        continue;
      }
      const Report report = whole(visit, kTheTen[i], kIds[type]);
      EXPECT_EQ(report.lines.at(2), "User Thread tag: >the tag<");
      EXPECT_EQ(report.lines.at(3) == "Process has exceeded its CPU limit", kTheTen[i] == SIGXCPU);
    }
}

TEST_F(Crash, NamesTheFaultingFunction) {
  const struct {
    const char* name;
    void (*die)();
    int signal;
  } ways[] = {{"writes_nowhere", writes_nowhere, SIGSEGV},      {"calls_null", calls_null, SIGSEGV},
              {"calls_a_hole", calls_a_hole, SIGSEGV},          {"overflows_the_stack", overflows_the_stack, SIGSEGV},
              {"loses_its_frames", loses_its_frames, SIGSEGV},  {"divides_by_zero", divides_by_zero, SIGFPE},
              {"corrupts_the_heap", corrupts_the_heap, SIGABRT}};
  for (const auto& way : ways) {
    if (PLOV_SANITIZED && way.signal == SIGABRT) continue;  // its allocator has ways of its own
    EXPECT_THAT(whole(crash(way.die), way.signal).backtrace, HasSubstr(way.name));
    expect_exits(1);
  }
}

TEST_F(Crash, TellsTheRegistersAndTheStack) {
  const Report report = whole(crash(writes_nowhere), SIGSEGV);
  EXPECT_EQ(report.after("Address of invalid memory access is "), "0x10");
  const char* const pointer = sizeof(void*) == 4 ? " EIP:" : " RIP:";
  const std::string registers = report.after(sizeof(void*) == 4 ? "EBP:" : "RBP:");
  ASSERT_THAT(registers, HasSubstr(pointer));
  const uintptr_t at = strtoull(registers.c_str() + registers.find(pointer) + 5, nullptr, 16);
  const auto function = reinterpret_cast<uintptr_t>(&writes_nowhere);
  EXPECT_GE(at, function);
  EXPECT_LT(at, function + 64);
  EXPECT_NE(report.after("1.At "), "");
}

TEST_F(Crash, WalksTheFramesOfAChain) {
  // Three frames made by hand, and a fourth that leads to itself.
  const Visit visit = crash([] {
    alignas(16) static uintptr_t stack[64];
    for (int i : {0, 8, 16}) stack[i] = reinterpret_cast<uintptr_t>(&stack[i + 8]), stack[i + 1] = 0xABC0u + i;
    stack[24] = reinterpret_cast<uintptr_t>(&stack[24]);
#ifdef __i386__
    asm volatile("movl %0, %%esp; movl %1, %%ebp; movl $1, 0x10" ::"r"(stack), "r"(stack + 8));
#else
    asm volatile("movq %0, %%rsp; movq %1, %%rbp; movl $1, 0x10" ::"r"(stack), "r"(stack + 8));
#endif
  });
  const Report report = whole(visit, SIGSEGV);
  EXPECT_THAT(report.after("1.At "), HasSubstr("abc0."));
  EXPECT_THAT(report.after("3.At "), HasSubstr("abd0."));
  EXPECT_EQ(report.after("10.At "), report.after("4.At ")) << "ten steps and no more";
  EXPECT_EQ(report.lines.back(), "  Stk: No stack data.");
  pce_wire_frame_table table;
  memcpy(&table, visit.newest->stack, sizeof table);
  constexpr unsigned kFrame = 8 * sizeof(uintptr_t);
  EXPECT_EQ(table.offset[0], 40);
  EXPECT_EQ(table.offset[2], 40 + 2 * kFrame);
  EXPECT_EQ(table.offset[10], 0);
  EXPECT_EQ(visit.newest->stack_length, 40 + 3 * kFrame);
  EXPECT_EQ(visit.newest->stack[40 + kFrame + sizeof(uintptr_t)], 0xC8);
}

TEST_F(Crash, LeavesTheHandlerWhatItNeeds) {
  if (PLOV_SANITIZED) GTEST_SKIP() << "a sanitizer allocates, and uses the stack, as it likes";
  for (bool faulty : {false, true}) {
    const Visit visit = crash([&] {
      only_exit([](int, siginfo_t*, void*) {
        const auto* const area = static_cast<const uint8_t*>(pthread_getspecific(gl_thd_data_key));
        size_t left = 0;
        while (area[left] == 0xA5) ++left;
        told.stack_left = left;
        told.in_place = getcwd(told.directory, sizeof told.directory) != nullptr;
      });
      memset(pthread_getspecific(gl_thd_data_key), 0xA5, 131386);
      faulty_collector = faulty;
      counting_allocations = true;
      writes_nowhere();
    });
    whole(visit, SIGSEGV);
    EXPECT_EQ(told.allocations, 0);
    EXPECT_GE(told.stack_left, 8192u);
    EXPECT_EQ(told.directory + std::string("/"), console_path() + "core/") << "where the core file goes";
    printf("%zu bytes of the alternate stack are never touched%s\n", told.stack_left.load(),
           faulty ? ", with a fault in the collector" : "");
  }
}

TEST_F(Crash, OfTheCollectorLeavesAReportWithoutABacktrace) {
  const Report report = whole(crash([] {
                                faulty_collector = true;
                                writes_nowhere();
                              }),
                              SIGSEGV);
  EXPECT_EQ(report.backtrace, "Backtrace Unavailable due to trap in collect_btrace()");
  expect_exits(1);
}

TEST_F(Crash, UnderAHeldLockIsReported) {
  whole(crash([] {
          uint32_t comprc;
          xlog_access_sem(XLOG_SEM_LOCK, &comprc);
          xlog_sig_handler(1);
          writes_nowhere();
        }),
        SIGSEGV);
  expect_exits(1);
  const Report report = whole(crash([] {
                                pthread_mutex_lock(&xtr_mutex_sem);
                                writes_nowhere();
                              }),
                              SIGSEGV);
  EXPECT_THAT(report.backtrace, HasSubstr("writes_nowhere"));
  expect_exits(0);  // they are called under the mutex or not at all
  // A signal in the middle of taking the mutex for a probe, when nobody can tell whose it is.
  whole(crash([] {
          uint32_t comprc = 0;
          ownerless_mutex = true;
          xpce_ckptr(&comprc, sizeof comprc, &comprc);
        }),
        SIGQUIT);
}

TEST_F(Crash, OfASecondThreadWaitsForTheFirst) {
  // The first one's exit, and the second one's sleep once that exit runs.
  static std::function<void()> exiting;
  const auto crash_together = [&](auto in_exit, auto sleeping) {
    return crash([=] {
      exiting = in_exit;
      in_sleep = sleeping;
      only_exit([](int, siginfo_t*, void*) {
        ++told.exits[0];
        exiting();
      });
      std::thread([] {
        while (told.exits[0] == 0) std::this_thread::yield();
        raise(SIGBUS);
      }).detach();
      writes_nowhere();
    });
  };
  const auto for_ever = [] {
    for (;;) pause();
    return 0u;
  };
  const auto until_the_other_sleeps = [] {
    while (told.slept != 60) std::this_thread::yield();
  };
  whole(crash_together(until_the_other_sleeps, for_ever), SIGSEGV);
  expect_exits(1);
  // When its patience is over, it goes its own way, without report and exits.
  const Visit visit = crash_together(for_ever, [] { return 0u; });
  EXPECT_EQ(visit.end, 1000 + SIGBUS);
  EXPECT_EQ(visit.reports.size(), 1u);
  expect_exits(1);
}

TEST_F(Crash, EndsTheProcessWhateverTheDaemonDoes) {
  trace_is_gone = true;
  const Visit slow = crash(writes_nowhere, 0, PceDaemon::kSlow);
  EXPECT_EQ(slow.end, 1000 + SIGSEGV);
  report_of(slow, SIGSEGV, 0x40A, 0);
  trace_is_gone = false;
  const Visit visit = crash(writes_nowhere, 0, PceDaemon::kHangsUpInsideTheReport);
  EXPECT_EQ(visit.end, 1000 + SIGSEGV);
  EXPECT_TRUE(visit.reports.empty());
  expect_exits(2);
}

TEST_F(Crash, FindsTheDaemonThatTookThePlaceOfTheFirst) {
  // The connection of the registration is closed by then.
  whole(crash(writes_nowhere, 0, PceDaemon::kLeavesUnanswered), SIGSEGV);
  expect_exits(1);
}

TEST_F(Crash, GoesOnToTheHandlerOfBefore) {
  const Visit visit = PceDaemon().serve_child([] {
    uint32_t comprc;
    signal(SIGTERM, [](int) { told.in_place = true; });
    prepare(0);
    errno = 77;
    raise(SIGTERM);
    const bool kept = errno == 77 && told.in_place;
    // The process lives on, as one that is handling a crash.
    const int sysrc = xpce_unset(&new_action, &comprc);
    return kept && sysrc == 0 && comprc == XPCE_DEREGISTER_SKIPPED ? 40 : 41;
  });
  EXPECT_EQ(visit.end, 40);
}

// What a busy process does: everything that takes the mutexes and locks that a crash might meet.
void keep_busy(unsigned seed) {
  std::minstd_rand random(seed);
  struct sigaction action, cleared;
  for (uint32_t comprc;;) switch (random() % 4) {
      case 0:
        xpce_setup(0, &action, &cleared, &comprc);
        xpce_unset(&action, &comprc);
        break;
      case 1:
        xpce_set_user_tag("busy", &comprc);
        break;
      case 2:
        // A sanitizer allocates where it sees the probes jump, and would wait for the lock of its own allocator.
        if (!PLOV_SANITIZED) free(malloc(random() % 5000));
        break;
      default:
        xpce_ckptr(&action, sizeof action, &comprc);
    }
}

TEST_F(Crash, OfForkedChildrenAtAnyMomentIsReported) {
  const int count = PLOV_SANITIZED ? 50 : 1000;
  const unsigned seed = std::random_device()();
  printf("seed %u\n", seed);
  const Visit visit = crash([=] {
    std::thread(keep_busy, seed).detach();
    std::thread(keep_busy, seed + 1).detach();
    int right = 0;
    std::minstd_rand random(seed);
    for (int i = 0; i < count; ++i) {
      for (unsigned spin = random() % 3000; spin > 0; --spin) asm volatile("");
      right += in_child([] {
                 counting_allocations = true;
                 writes_nowhere();
                 return 0;
               }) == 1000 + SIGSEGV;
    }
    _exit(right == count ? 33 : 34);
  });
  EXPECT_EQ(visit.end, 33) << "a child did not end by its signal";
  EXPECT_EQ(visit.reports.size(), static_cast<size_t>(count));
  for (const Report& report : visit.reports) ASSERT_THAT(report.backtrace, HasSubstr("writes_nowhere"));
  EXPECT_EQ(told.exits[0], count);
  EXPECT_EQ(told.allocations, 0);
}

TEST_F(Crash, OfABusyProcessAtAnyMomentIsReported) {
  const unsigned seed = std::random_device()();
  printf("seed %u\n", seed);
  std::minstd_rand random(seed);
  for (int i = 0; i < (PLOV_SANITIZED ? 10 : 100); ++i) {
    const unsigned spins = random() % 1000000;
    const Visit visit = crash([=] {
      const pthread_t busy = pthread_self();
      std::thread([=] {
        for (unsigned spin = spins; spin > 0; --spin) asm volatile("");
        pthread_kill(busy, SIGQUIT);
      }).detach();
      keep_busy(seed);
    });
    whole(visit, SIGQUIT);
  }
}

}  // namespace
