// One map, many processes of both word sizes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <string.h>
#include <sys/sem.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include "support/child.h"
#include "support/codes.h"
#include "support/doubles.h"
#include "support/files.h"
#include "support/map_file.h"
#include "support/worker.h"
#include "xlog.h"
#include "xsim.h"

using namespace test;

namespace {

void (*in_write)();  // run in the middle of a permanent field's write, the map held

}  // namespace

extern "C" size_t fwrite(const void* bytes, size_t size, size_t count, FILE* stream) {
  if (in_write) in_write();
  return REAL(fwrite)(bytes, size, count, stream);
}

namespace {

uint32_t number(uint32_t id) {
  uint32_t value = 0;
  const std::string bytes = field(id, sizeof value);
  memcpy(&value, bytes.data(), sizeof value);
  return value;
}

int semaphore_value() {
  return semctl(pxsim_hdr->semaphore_id, 0, GETVAL);
}

int write_persistent(const char* value) {
  return codes(xsim_write, 9, value, 0u) == Codes(0, 0) ? 0 : 1;
}

class Map : public testing::Test {
 protected:
  void SetUp() override {
    MapFile()
        .add(6, kData, std::string(4, '\0'))
        .add(7, kData, std::string(8, '\0'))
        .add(8, kData, "seen")
        .add(9, kPersistent, "first")
        .install();
  }
};

TEST_F(Map, SixteenProcessesOfBothWordSizesLoseNoUpdate) {
  constexpr unsigned kWorkers = 16, kEach = 200;
  EXPECT_EQ(number(6), 0u);  // whoever comes while another one loads meets a map that is not there yet
  std::vector<std::unique_ptr<Process>> workers;
  for (unsigned i = 0; i < kWorkers; ++i)
    workers.push_back(std::make_unique<Process>((i % 2 ? own_program("map_worker") : other_abi_program("map_worker")) +
                                                " " + std::to_string(kEach) + " 6"));
  for (auto& worker : workers) EXPECT_EQ(worker->wait(), 0);
  EXPECT_EQ(number(6), kWorkers * kEach);
}

TEST_F(Map, TheOtherWordSizeSeesTheSameValuesAndNoFile) {
  EXPECT_EQ(field(8, 4), "seen");
  EXPECT_EQ(codes(xsim_write, 8, "thru", 0u), Codes(0, 0));
  unlink(config_path("ywkzsim.dat").c_str());
  unlink(config_path("ywkzspr.dat").c_str());
  Process other(other_abi_program("map_worker") + " 3 6");
  EXPECT_EQ(other.wait(), 0);
  EXPECT_EQ(number(6), 3u);
}

TEST_F(Map, AKilledOneBlocksNobody) {
  constexpr unsigned kKills = 200;
  std::mt19937 random(std::random_device{}());
  for (unsigned i = 0; i < kKills; ++i) {
    const uint32_t before = number(6);
    Process victim((i % 2 ? own_program("map_worker") : other_abi_program("map_worker")) + " 0 6");
    while (number(6) == before && victim.running()) sched_yield();
    usleep(random() % 2000);
    ASSERT_TRUE(victim.running());
    victim.kill_now();
    ASSERT_GE(number(8), 1u) << "after " << i << " kills";
    ASSERT_EQ(semaphore_value(), 0);
    uint32_t comprc;
    xsim_unlock(6, &comprc);  // a field's lock is nobody's
  }
}

TEST_F(Map, AProcessKilledWhileItHoldsTheMapGivesItBack) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  static int held;
  held = ends[1];
  const pid_t holder = start_child([] {
    in_write = [] {
      if (write(held, "x", 1) == 1) pause();
    };
    return write_persistent("kill!");
  });
  char byte;
  ASSERT_EQ(read(ends[0], &byte, 1), 1);
  const pid_t waiter = start_child([] { return field(8, 4) == "seen" ? 0 : 1; });
  usleep(50000);
  EXPECT_EQ(waitpid(waiter, nullptr, WNOHANG), 0) << "the map is held";
  kill(holder, SIGKILL);
  EXPECT_EQ(wait_for(holder), 1000 + SIGKILL);
  EXPECT_EQ(wait_for(waiter), 0);
}

TEST_F(Map, AForkedChildHoldsNothingAndACancelledThreadLeavesIt) {
  static std::atomic<int> child;
  static std::atomic<bool> inside;
  EXPECT_EQ(number(6), 0u);
  in_write = [] {
    in_write = nullptr;
    child = fork();
    if (child == 0) {
      // The parent holds the map until this child, which must wait for it, is seen to wait.
      alarm(10);
      _exit(field(8, 4) == "seen" && semaphore_value() == 0 ? 0 : 1);
    }
    EXPECT_EQ(semaphore_value(), 1);
    usleep(20000);
  };
  EXPECT_EQ(write_persistent("forks"), 0);
  EXPECT_EQ(wait_for(child), 0);

  in_write = [] {
    in_write = nullptr;
    inside = true;
    for (int i = 0; i < 20; ++i) usleep(1000);  // a cancellation point
  };
  std::thread thread([] {
    EXPECT_EQ(write_persistent("ended"), 0);
    for (;;) pause();
  });
  while (!inside) sched_yield();
  pthread_cancel(thread.native_handle());
  thread.join();
  EXPECT_EQ(field(9, 5), "ended");
  EXPECT_EQ(read_file(config_path("ywkzspr.dat")).substr(6), "ended");
  EXPECT_EQ(semaphore_value(), 0);
}

// A signal handler may come in the middle of an operation of its own thread.
TEST_F(Map, TheThreadThatHoldsTheMapMayReadIt) {
  static std::string seen;
  EXPECT_EQ(number(6), 0u);
  in_write = [] {
    in_write = nullptr;
    seen = field(8, 4);
    EXPECT_EQ(semaphore_value(), 1) << "the inner level gave the map away";
  };
  EXPECT_EQ(write_persistent("inner"), 0);
  EXPECT_EQ(seen, "seen");
  EXPECT_EQ(semaphore_value(), 0);
}

TEST_F(Map, FirstLoadersRaceAndNobodyMeetsHalfAMap) {
  for (int round = 0; round < 20; ++round) {
    EXPECT_EQ(in_child([round] {
                if (unshare(CLONE_NEWIPC) != 0) return 9;
                std::vector<pid_t> children;
                for (int i = 0; i < 12; ++i)
                  children.push_back(start_child([] {
                    const std::string value = field(8, 4);
                    return value == "seen" ? 0 : value == "?21" ? 1 : 2;
                  }));
                if (round % 4 == 3) kill(children[0], SIGKILL);
                int worst = 0;
                for (const pid_t child : children) {
                  const int status = wait_for(child);
                  if (status < 1000 && status > worst) worst = status;
                }
                return worst < 2 ? 0 : worst;
              }),
              0)
        << "round " << round;
  }
}

}  // namespace
