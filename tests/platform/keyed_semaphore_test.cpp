// One lock a key for all processes: who is kept out, and what frees it.
#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "support/child.h"
#include "support/traced.h"
#include "xsem.h"

namespace {

constexpr uint32_t kKey = 0x96728008;

xsem_handle_t handle_of(uint32_t key = kKey) {
  xsem_handle_t handle = nullptr;
  int32_t crc = 99;
  EXPECT_EQ(xsem_getSemaphoreHandle(&handle, key, &crc), 0);
  EXPECT_EQ(crc, 0);
  return handle;
}

// The component code; fails when it does not go with the result.
uint32_t lock(xsem_handle_t handle, uint32_t timeout = XSEM_WAIT_FOREVER) {
  int32_t crc = 99;
  const int32_t result = xsem_lockSemaphore(handle, timeout, &crc);
  EXPECT_EQ(result != 0, crc != 0);
  return static_cast<uint32_t>(crc);
}

uint32_t unlock(xsem_handle_t handle) {
  int32_t crc = 99;
  const int32_t result = xsem_unlockSemaphore(handle, &crc);
  EXPECT_EQ(result != 0, crc != 0);
  return static_cast<uint32_t>(crc);
}

// What another thread gets that tries to take the lock for a moment; it gives it back.
uint32_t tried_by_a_thread(xsem_handle_t handle, uint32_t timeout = 0) {
  uint32_t code = 99;
  std::thread([&] {
    code = lock(handle, timeout);
    if (code == 0) unlock(handle);
  }).join();
  return code;
}

int tried_by_a_process(uint32_t timeout = 0) {
  return test::in_child([=] { return static_cast<int>(lock(handle_of(), timeout)); });
}

int set_id() {
  return semget(static_cast<key_t>(kKey), 0, 0);
}

int value() {
  return semctl(set_id(), 0, GETVAL);
}

TEST(KeyedSemaphore, ExcludesThreadsAndProcessesAndIsReentrant) {
  const xsem_handle_t handle = handle_of();
  EXPECT_EQ(handle_of(), handle) << "two handles of one key would be two holders";
  EXPECT_NE(handle_of(kKey + 1), handle);
  for (int level = 0; level < 3; ++level) ASSERT_EQ(lock(handle), 0u);
  for (int level = 0; level < 3; ++level) {
    EXPECT_EQ(tried_by_a_thread(handle), XSEM_TIMED_OUT);
    EXPECT_EQ(tried_by_a_process(), static_cast<int>(XSEM_TIMED_OUT));
    EXPECT_EQ(unlock(handle), 0u);
  }
  EXPECT_EQ(tried_by_a_thread(handle), 0u);
  EXPECT_EQ(tried_by_a_process(), 0);
  EXPECT_EQ(value(), 0);
}

TEST(KeyedSemaphore, StrangersUnlockChangesNothing) {
  const xsem_handle_t handle = handle_of();
  EXPECT_EQ(unlock(handle), XSEM_NOT_HOLDER);
  ASSERT_EQ(lock(handle), 0u);
  std::thread([&] { EXPECT_EQ(unlock(handle), XSEM_NOT_HOLDER); }).join();
  EXPECT_EQ(test::in_child([&] { return static_cast<int>(unlock(handle)); }), static_cast<int>(XSEM_NOT_HOLDER));
  EXPECT_EQ(value(), 1);
  EXPECT_EQ(unlock(handle), 0u);
  EXPECT_EQ(unlock(handle), XSEM_NOT_HOLDER) << "one level too many";
  EXPECT_EQ(value(), 0);
  EXPECT_EQ(lock(nullptr), XSEM_BAD_HANDLE);
  EXPECT_EQ(unlock(nullptr), XSEM_BAD_HANDLE);
}

TEST(KeyedSemaphore, FreeAtOnceWhenItsHolderDies) {
  for (int way = 0; way < 3; ++way) {
    const pid_t holder = test::start_child([=] {
      lock(handle_of());
      lock(handle_of());
      if (way == 0) return 0;
      if (way == 1) raise(SIGSEGV);
      return pause();
    });
    if (way == 2) {
      handle_of();
      while (value() == 0) usleep(1000);
      EXPECT_EQ(tried_by_a_process(), static_cast<int>(XSEM_TIMED_OUT));
      kill(holder, SIGKILL);
    }
    test::wait_for(holder);
    EXPECT_EQ(tried_by_a_process(), 0) << "way " << way;
  }
}

TEST(KeyedSemaphore, FreeWhenTheHoldingThreadEndsOrIsCancelled) {
  const xsem_handle_t handle = handle_of();
  std::thread([&] {
    lock(handle);
    lock(handle);
  }).join();
  EXPECT_EQ(tried_by_a_thread(handle), 0u);

  std::atomic<bool> holds{false};
  std::thread thread([&] {
    lock(handle);
    holds = true;
    for (;;) pause();
  });
  while (!holds) usleep(1000);
  EXPECT_EQ(tried_by_a_thread(handle), XSEM_TIMED_OUT);
  pthread_cancel(thread.native_handle());
  thread.join();
  EXPECT_EQ(tried_by_a_thread(handle), 0u);
  EXPECT_EQ(tried_by_a_process(), 0);
}

// A destructor that runs at the thread's end may take the lock after ours has released it.
TEST(KeyedSemaphore, FreeWhenALaterThreadDestructorTookIt) {
  static pthread_key_t key;
  static xsem_handle_t handle;
  handle = handle_of();
  pthread_key_create(&key, [](void*) { lock(handle); });
  std::thread([] {
    lock(handle);
    unlock(handle);
    pthread_setspecific(key, &key);
  }).join();
  EXPECT_EQ(tried_by_a_thread(handle), 0u);
}

TEST(KeyedSemaphore, ForkedChildHoldsNothing) {
  const xsem_handle_t handle = handle_of();
  ASSERT_EQ(lock(handle), 0u);
  for (pid_t (*fork_way)(void) : {&fork, &_Fork}) {
    const pid_t child = fork_way();
    if (child == 0)
      _exit(unlock(handle) == XSEM_NOT_HOLDER && lock(handle, 10) == XSEM_TIMED_OUT && value() == 1 ? 0 : 1);
    EXPECT_EQ(test::wait_for(child), 0);
  }
  EXPECT_EQ(value(), 1) << "the child's end freed the parent's lock";
  EXPECT_EQ(unlock(handle), 0u);
}

TEST(KeyedSemaphore, WaitsAsLongAsAskedWhateverSignalsCome) {
  using clock = std::chrono::steady_clock;
  const xsem_handle_t handle = handle_of();
  ASSERT_EQ(lock(handle), 0u);
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  sigaction(SIGALRM, &action, nullptr);
  std::thread([&] {
    const itimerval often = {{0, 2000}, {0, 2000}}, never = {};
    setitimer(ITIMER_REAL, &often, nullptr);
    const auto start = clock::now();
    EXPECT_EQ(lock(handle, 300), XSEM_TIMED_OUT);
    EXPECT_GE(clock::now() - start, std::chrono::milliseconds(299));
    setitimer(ITIMER_REAL, &never, nullptr);
  }).join();
  std::atomic<bool> released{false};
  std::thread waiter([&] {
    EXPECT_EQ(lock(handle), 0u);
    EXPECT_TRUE(released);
    unlock(handle);
  });
  usleep(50000);
  released = true;
  EXPECT_EQ(unlock(handle), 0u);
  waiter.join();
}

TEST(KeyedSemaphore, ManyThreadsAndProcessesRunOneAtATime) {
  constexpr int kProcesses = 4, kThreads = 3, kEach = 300;
  auto* counter =
      static_cast<volatile int*>(mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  std::vector<pid_t> children;
  for (int p = 0; p < kProcesses; ++p)
    children.push_back(test::start_child([=] {
      std::vector<std::thread> threads;
      for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([=] {
          const xsem_handle_t handle = handle_of();
          for (int i = 0; i < kEach; ++i) {
            lock(handle);
            const int seen = *counter;
            if (i % 16 == 0) sched_yield();
            *counter = seen + 1;
            unlock(handle);
          }
        });
      for (std::thread& thread : threads) thread.join();
      return 0;
    }));
  for (pid_t child : children) EXPECT_EQ(test::wait_for(child), 0);
  EXPECT_EQ(*counter, kProcesses * kThreads * kEach);
}

TEST(KeyedSemaphore, RemovedSetIsMadeAgain) {
  const xsem_handle_t handle = handle_of();
  semctl(set_id(), 0, IPC_RMID);
  EXPECT_EQ(lock(handle), 0u);
  std::atomic<uint32_t> waiter{99};
  std::thread thread([&] { waiter = lock(handle); });
  usleep(50000);
  EXPECT_EQ(waiter, 99u);
  semctl(set_id(), 0, IPC_RMID);
  thread.join();
  EXPECT_EQ(waiter, 0u) << "a wait was not carried on in the new set";

  ASSERT_EQ(lock(handle), 0u);
  semctl(set_id(), 0, IPC_RMID);
  EXPECT_GE(unlock(handle), XSEM_SYSTEM_ERROR) << "nobody was kept out any more, and it was not said";
  EXPECT_EQ(unlock(handle), XSEM_NOT_HOLDER);
  EXPECT_EQ(lock(handle), 0u);
  EXPECT_EQ(unlock(handle), 0u);
}

TEST(KeyedSemaphore, ForeignSetGivesACode) {
  const int several = semget(static_cast<key_t>(kKey), 5, IPC_CREAT | 0666);
  ASSERT_GE(several, 0);
  xsem_handle_t handle = nullptr;
  int32_t crc = 0;
  EXPECT_EQ(xsem_getSemaphoreHandle(&handle, kKey, &crc), 8);
  EXPECT_EQ(crc, static_cast<int32_t>(XSEM_FOREIGN_SET));
  semctl(several, 0, IPC_RMID);
  if (geteuid() == 0) {
    ASSERT_GE(semget(static_cast<key_t>(kKey), 1, IPC_CREAT | 0600), 0);
    EXPECT_EQ(test::in_child([] {
                int32_t code = 0;
                xsem_handle_t none;
                if (setuid(12345) != 0) return 1;
                return xsem_getSemaphoreHandle(&none, kKey, &code) == 8 &&
                               code == static_cast<int32_t>(XSEM_SYSTEM_ERROR) + EACCES
                           ? 0
                           : 2;
              }),
              0);
  }
}

TEST(KeyedSemaphore, LongWaitLeavesATraceLine) {
  const xsem_handle_t handle = handle_of();
  union {
    int number;
  } held = {1};
  semctl(set_id(), 0, SETVAL, held);  // by nobody that the kernel could free it for
  EXPECT_EQ(lock(handle, 3100), XSEM_TIMED_OUT);
  EXPECT_NE(test::traced().find("waiting for semaphore 0x96728008 since 3"), std::string::npos);
}

}  // namespace
