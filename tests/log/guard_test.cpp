// Crashes inside a log operation: the log lock is free before whoever handled SIGSEGV before hears of it. The fault is
// in a stream call, which is this program's.
#include <alloca.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <setjmp.h>
#include <signal.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/sem.h>

#include <functional>
#include <thread>
#include <utility>

#include "support/child.h"
#include "support/doubles.h"
#include "support/files.h"
#include "support/log_calls.h"
#include "support/pages.h"
#include "support/signals.h"
#include "xlog.h"
#include "xsem.h"

using namespace test;

namespace {

std::function<void()> inside;  // what the next write of a log operation does first
const char* failing_device;    // the next open of this file fails

}  // namespace

size_t fwrite(const void* bytes, size_t size, size_t count, FILE* stream) {
  if (inside) std::exchange(inside, nullptr)();
  return REAL(fwrite)(bytes, size, count, stream);
}

FILE* fopen(const char* path, const char* mode) {
  if (failing_device && strstr(path, failing_device)) {
    failing_device = nullptr;
    errno = EIO;
    return nullptr;
  }
  return REAL64(fopen)(path, mode);
}

namespace {

int* volatile nowhere = reinterpret_cast<int*>(0x10);

void crash() {
  *nowhere = 1;
}

__attribute__((no_sanitize("address", "undefined"))) void overflow_stack() {
  for (;;) *static_cast<volatile char*>(alloca(1024)) = 0;
}

struct sigaction current_action() {
  struct sigaction action;
  sigaction(SIGSEGV, nullptr, &action);
  return action;
}

xsem_handle_t log_semaphore() {
  xsem_handle_t semaphore = nullptr;
  int32_t crc;
  xsem_getSemaphoreHandle(&semaphore, XLOG_SEMAPHORE_KEY, &crc);
  return semaphore;
}

// Whether another process gets the log lock at once.
bool lock_is_free() {
  return in_child([] {
           int32_t crc;
           return xsem_lockSemaphore(log_semaphore(), 50, &crc);
         }) == 0;
}

// How often this thread holds the lock.
int lock_levels() {
  int levels = 0;
  for (int32_t crc; xsem_unlockSemaphore(log_semaphore(), &crc) == 0;) ++levels;
  for (int32_t i = 0, crc; i < levels; ++i) xsem_lockSemaphore(log_semaphore(), XSEM_WAIT_FOREVER, &crc);
  return levels;
}

// What becomes of a child that prepares and then records an event in whose first write `event` happens.
template <class Prepare>
int recording(Prepare prepare, std::function<void()> event) {
  return in_child([&] {
    prepare();
    inside = event;
    return record({}).sysrc == 0 ? 0 : 90;
  });
}

// Exit codes of the handlers: 50 when all was as it should be.
void check_and_exit(int) {
  _exit(!lock_is_free() ? 51 : xlog_sig_flag != 0 ? 52 : current_action().sa_handler != check_and_exit ? 53 : 50);
}

void check_information_and_exit(int signal, siginfo_t* information, void* context) {
  const bool exact = signal == SIGSEGV && information->si_code == SEGV_MAPERR && information->si_addr == nowhere;
  _exit(!exact || !context ? 54 : !lock_is_free() ? 51 : 50);
}

class Guard : public testing::Test {
 protected:
  void SetUp() override {
    alarm(30);
    ASSERT_EQ(record({}).sysrc, 0);
  }
  void TearDown() override {
    EXPECT_TRUE(lock_is_free());
    EXPECT_EQ(record({}).sysrc, 0);
  }
};

TEST_F(Guard, FreesTheLockBeforeTheEarlierHandlerRuns) {
  EXPECT_EQ(recording([] { handle_crashes(check_and_exit); }, crash), 50);
  EXPECT_EQ(recording([] { handle_crashes(check_information_and_exit); }, crash), 50);
  // An operation inside another holds the lock twice.
  EXPECT_EQ(recording([] { handle_crashes(check_and_exit); },
                      [] {
                        inside = crash;
                        record({.target = "in"});
                      }),
            50);
  static char memory[16 * kPage];
  const stack_t alternate = {memory, 0, sizeof memory};
  EXPECT_EQ(recording(
                [&] {
                  sigaltstack(&alternate, nullptr);
                  handle_crashes(check_and_exit, SA_ONSTACK);
                },
                overflow_stack),
            50);
}

TEST_F(Guard, ProcessWithoutAHandlerDiesOfTheSignal) {
  for (auto disposition : {SIG_DFL, SIG_IGN})
    EXPECT_EQ(recording([=] { signal(SIGSEGV, disposition); }, crash), 1000 + SIGSEGV);
  for (int fatal : {SIGBUS, SIGILL, SIGFPE, SIGABRT}) {
    EXPECT_EQ(recording([=] { signal(fatal, SIG_DFL); }, [=] { raise(fatal); }), 1000 + fatal);
    EXPECT_TRUE(lock_is_free()) << fatal;
  }
  EXPECT_EQ(read_all().size(), 2u);
}

TEST_F(Guard, HardErrorOfAnOperationIsRecordedAfterIt) {
  failing_device = "wexoinit.trm";  // read to make a new log
  int levels = 0;
  inside = [&] { levels = lock_levels(); };
  EXPECT_EQ(record({.target = "new"}), std::pair(8, uint32_t{XLOG_ERR_CONFIG_OPEN}));
  EXPECT_EQ(levels, 1) << "recorded inside the operation that failed";
  int cancel_state;
  pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &cancel_state);
  EXPECT_EQ(cancel_state, PTHREAD_CANCEL_ENABLE) << "left as it was for the record";
  const ReadLog event = read_all().front();
  EXPECT_EQ(event.name, "DFC Hard Err");
  EXPECT_EQ(event.blocks[1].bytes, std::string({11, 0, EIO, 0, 0, 0}));
  EXPECT_EQ(read_all().size(), 3u) << "recorded once";
}

TEST_F(Guard, RemovedSemaphoreIsNotHeldForEver) {
  inside = [] { semctl(semget(XLOG_SEMAPHORE_KEY, 1, 0), 0, IPC_RMID); };
  record({});
  int cancel_state;
  pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &cancel_state);
  EXPECT_EQ(cancel_state, PTHREAD_CANCEL_ENABLE);
  const size_t before = read_all().size();
  failing_device = "wexoinit.trm";
  record({.target = "new"});
  EXPECT_EQ(read_all().size(), before + 1) << "a hard error waits for a lock that is long gone";
}

sigjmp_buf recovery;

TEST_F(Guard, ThreadThatOutlivesItsCrashLosesNothing) {
  EXPECT_EQ(recording([] { handle_crashes([](int) { siglongjmp(recovery, 1); }); },
                      [] {
                        if (sigsetjmp(recovery, 1) == 0) crash();
                        failing_device = "wexoinit.trm";
                        _exit(lock_is_free() ? record({.target = "new"}).sysrc : 51);
                      }),
            8);
  EXPECT_EQ(read_all().front().name, "DFC Hard Err") << "waits for a lock that is long free";
}

TEST_F(Guard, IsThereForTheOutermostOperationOnly) {
  handle_crashes(check_and_exit, SA_RESTART);
  const SignalState before;
  inside = [] {
    const auto guard = current_action().sa_sigaction;
    EXPECT_NE(current_action().sa_handler, check_and_exit);
    EXPECT_EQ(record({.target = "in"}).sysrc, 0);
    EXPECT_EQ(current_action().sa_sigaction, guard);
    EXPECT_EQ(xlog_sig_flag, 1u);
  };
  EXPECT_EQ(record({}).sysrc, 0);
  EXPECT_EQ(xlog_sig_flag, 0u);
  EXPECT_TRUE(SignalState() == before);
}

TEST_F(Guard, LeavesTheCrashOfAnotherThreadToTheEarlierHandler) {
  for (bool informed : {false, true}) {
    Pages page(1, PROT_NONE);
    faulting = &page;
    fault_address = nullptr;
    informed ? handle_crashes(repair_with_information) : handle_crashes(repair);
    inside = [&] {
      fault_on_another_thread(page.begin());
      EXPECT_EQ(fault_address, informed ? page.begin() : nullptr);
      EXPECT_FALSE(lock_is_free());
      EXPECT_EQ(xlog_sig_flag, 1u);
    };
    EXPECT_EQ(record({}).sysrc, 0) << "the operation itself goes on";
  }
  const Pages page(1, PROT_NONE);
  for (auto disposition : {SIG_DFL, SIG_IGN})
    EXPECT_EQ(recording([=] { signal(SIGSEGV, disposition); }, [&] { fault_on_another_thread(page.begin()); }),
              1000 + SIGSEGV);
}

TEST_F(Guard, IsNotTheForkedChilds) {
  handle_crashes([](int) { _exit(60); });
  inside = [] {
    EXPECT_EQ(in_child([] {
                if (xlog_sig_flag != 0) return 61;
                crash();
                return 62;
              }),
              60);
    EXPECT_FALSE(lock_is_free()) << "a child gave its parent's lock away";
    EXPECT_EQ(xlog_sig_flag, 1u);
  };
  EXPECT_EQ(record({}).sysrc, 0);
}

}  // namespace
