// Many processes of both word sizes, each with several threads, on one log.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <map>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <vector>

#include "support/files.h"
#include "support/log_calls.h"
#include "support/worker.h"

using namespace test;

namespace {

std::string worker_command(unsigned worker, unsigned threads, unsigned events) {
  const std::string program = worker % 2 ? own_program("log_worker") : other_abi_program("log_worker");
  return program + " " + std::to_string(worker) + " " + std::to_string(threads) + " " + std::to_string(events);
}

// Events of workers in the log, by (worker, thread, number); each is compared with what its number says it holds.
using Key = std::tuple<unsigned, unsigned, unsigned>;
std::map<Key, uint64_t> worker_events() {
  std::map<Key, uint64_t> events;
  for (const ReadLog& log : read_all()) {
    if (log.eventid.classes < kWorkerClass || log.name != "log worker  ") continue;
    const Key key = {log.eventid.classes - kWorkerClass, log.eventid.log_type, log.eventid.user};
    EXPECT_EQ(log.blocks.size(), 3u);
    EXPECT_EQ(log.blocks[1].bytes, worker_bytes(std::get<0>(key), std::get<1>(key), std::get<2>(key)));
    EXPECT_EQ(log.blocks[2].bytes.size(), 82u);
    EXPECT_TRUE(events.emplace(key, log.timestamp.seconds * uint64_t{100} + log.timestamp.hundredths).second)
        << "an event is there twice";
  }
  return events;
}

TEST(ManyProcesses, LoseNothingAndKeepTheirStampsApart) {
  constexpr unsigned kWorkers = 8, kThreads = 4, kEvents = 12;
  std::vector<std::unique_ptr<Process>> workers;
  for (unsigned i = 0; i < kWorkers; ++i)
    workers.push_back(std::make_unique<Process>(worker_command(i, kThreads, kEvents)));
  for (auto& worker : workers) EXPECT_EQ(worker->wait(), 0);
  EXPECT_EQ(check_log(data_path("wexolog.log")), 0);
  const auto events = worker_events();
  EXPECT_EQ(events.size(), kWorkers * kThreads * kEvents);
  for (unsigned i = 0; i < kWorkers; ++i) {
    std::set<uint64_t> stamps;
    for (const auto& [key, stamp] : events)
      if (std::get<0>(key) == i) {
        EXPECT_TRUE(stamps.insert(stamp).second) << "two events of one process in one hundredth";
      }
    EXPECT_EQ(stamps.size(), kThreads * kEvents);
  }
}

TEST(ManyProcesses, AKilledOneBlocksNobodyAndLosesNothingThatWasTaken) {
  constexpr unsigned kWorkers = 4, kKills = 60;
  std::random_device seed;
  const unsigned chosen = seed();
  std::mt19937 random(chosen);
  SCOPED_TRACE("seed " + std::to_string(chosen));
  std::vector<std::unique_ptr<Process>> workers(kWorkers);
  std::set<Key> taken;
  const auto collect = [&](unsigned i) {
    std::istringstream lines(workers[i]->rest());
    unsigned thread, number, seconds, hundredths;
    while (lines >> thread >> number >> seconds >> hundredths) taken.insert({i, thread, number});
  };
  // A worker that was killed begins again with number 0, so each gets a number of its own.
  unsigned next = 0;
  std::vector<unsigned> ids;
  for (unsigned kills = 0; kills < kKills; ++kills) {
    while (workers.size() < next + kWorkers) workers.emplace_back();
    if (ids.size() < kWorkers) {
      workers[next] = std::make_unique<Process>(worker_command(next, 2, 0));
      ids.push_back(next++);
      if (ids.size() < kWorkers) {
        --kills;
        continue;
      }
    }
    usleep(5000 + random() % 60000);
    const size_t victim = random() % ids.size();
    ASSERT_TRUE(workers[ids[victim]]->running());
    workers[ids[victim]]->kill_now();
    collect(ids[victim]);
    ids.erase(ids.begin() + static_cast<long>(victim));
    if (kills % 20 == 19) {
      const Result result = record({});
      EXPECT_EQ(result.sysrc, 0) << "comprc " << result.comprc;
    }
  }
  for (const unsigned id : ids) {
    workers[id]->kill_now();
    collect(id);
  }
  EXPECT_EQ(record({}).sysrc, 0);
  EXPECT_EQ(check_log(data_path("wexolog.log")), 0);
  const auto events = worker_events();
  EXPECT_GT(taken.size(), 100u);
  for (const Key& key : taken) EXPECT_TRUE(events.count(key)) << "an event that was taken is gone";
  EXPECT_LE(events.size(), taken.size() + next * 2) << "at most one event a killed thread is there without its report";
}

}  // namespace
