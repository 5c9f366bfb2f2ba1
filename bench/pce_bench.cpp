// The set-up and unset of a thread beside the system calls that they cannot do without; the time from a fault to the
// report and the process's end beside a plain child that dies, and beside what a core-pattern pipe handler does: a
// program that is started for the dead process, takes its core and writes a line.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <atomic>
#include <chrono>

#include "support/pce_daemon.h"
#include "xpce.h"
#include "xtr.h"

namespace {

using Clock = std::chrono::steady_clock;

std::atomic<int64_t>& fault_time =
    *static_cast<std::atomic<int64_t>*>(mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
struct sigaction action, cleared;

void floor_thread_pair(benchmark::State& state) {
  static char memory[131386];
  const stack_t stack = {memory, 0, sizeof memory}, none = {nullptr, SS_DISABLE, 0};
  for (auto _ : state) {
    pthread_mutex_lock(&xtr_mutex_sem);
    sigaltstack(&stack, nullptr);
    pthread_mutex_unlock(&xtr_mutex_sem);
    pthread_mutex_lock(&xtr_mutex_sem);
    sigaltstack(&none, nullptr);
    pthread_mutex_unlock(&xtr_mutex_sem);
  }
}

// A pair in a child under the daemon: the process is set up by another thread.
void thread_pair(benchmark::State& state) {
  for (auto _ : state) {
    test::PceDaemon daemon;
    constexpr int kPairs = 2000;
    const test::Visit visit = daemon.serve_child([] {
      uint32_t comprc;
      if (xpce_setup(0, &action, &cleared, &comprc) != 0) return 1;
      const auto pairs = [](void*) -> void* {
        struct sigaction mine, old;
        uint32_t rc;
        const auto start = Clock::now();
        for (int i = 0; i < kPairs; ++i) {
          xpce_setup(0, &mine, &old, &rc);
          xpce_unset(&mine, &rc);
        }
        fault_time = (Clock::now() - start).count();
        return nullptr;
      };
      pthread_t thread;
      pthread_create(&thread, nullptr, pairs, nullptr);
      pthread_join(thread, nullptr);
      return 0;
    });
    if (visit.end != 0) state.SkipWithError("no set-up");
    state.SetIterationTime(static_cast<double>(fault_time) * 1e-9 / kPairs);
  }
}

int* volatile nowhere = reinterpret_cast<int*>(0x10);

void die() {
  fault_time = Clock::now().time_since_epoch().count();
  *nowhere = 1;
}

double since_the_fault() {
  return static_cast<double>(Clock::now().time_since_epoch().count() - fault_time) * 1e-9;
}

void without_core() {
  const rlimit none = {};
  setrlimit(RLIMIT_CORE, &none);
}

void floor_fault_to_end(benchmark::State& state) {
  for (auto _ : state) {
    test::in_child([] {
      without_core();
      die();
      return 0;
    });
    state.SetIterationTime(since_the_fault());
  }
}

void fault_to_report(benchmark::State& state) {
  for (auto _ : state) {
    test::PceDaemon daemon;
    const test::Visit visit = daemon.serve_child([] {
      without_core();
      uint32_t comprc;
      if (xpce_setup(0, &action, &cleared, &comprc) == 0) die();
      return 1;
    });
    state.SetIterationTime(since_the_fault());
    if (visit.reports.size() != 1) state.SkipWithError("no report");
  }
}

void pipe_handler(benchmark::State& state) {
  static char core[65536];
  for (auto _ : state) {
    test::in_child([] {
      without_core();
      die();
      return 0;
    });
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return state.SkipWithError("no pipe");
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_adddup2(&files, ends[0], 0);
    char shell[] = "/bin/sh", option[] = "-c", command[] = "exec head -c 100000 >/dev/null";
    char* arguments[] = {shell, option, command, nullptr};
    pid_t handler;
    if (posix_spawn(&handler, shell, &files, nullptr, arguments, environ) != 0)
      return state.SkipWithError("no handler");
    close(ends[0]);
    for (size_t done = 0; done < sizeof core;) done += static_cast<size_t>(write(ends[1], core, sizeof core - done));
    close(ends[1]);
    test::wait_for(handler);
    state.SetIterationTime(since_the_fault());
    posix_spawn_file_actions_destroy(&files);
  }
}

}  // namespace

BENCHMARK(floor_thread_pair);
BENCHMARK(thread_pair)->UseManualTime()->Iterations(2);
BENCHMARK(floor_fault_to_end)->UseManualTime()->Iterations(20);
BENCHMARK(fault_to_report)->UseManualTime()->Iterations(20);
BENCHMARK(pipe_handler)->UseManualTime()->Iterations(20);
BENCHMARK_MAIN();
