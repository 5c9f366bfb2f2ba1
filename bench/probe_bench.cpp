// A pointer probe beside the bare calls that it cannot do without, and the string probe beside reading the string.
#include <benchmark/benchmark.h>
#include <pthread.h>
#include <setjmp.h>
#include <signal.h>
#include <string.h>

#include "xpce.h"
#include "xtr.h"

namespace {

void handler(int, siginfo_t*, void*) {}

sigjmp_buf jump_point;
struct sigaction action, saved;

void floor_probe(benchmark::State& state) {
  for (auto _ : state) {
    pthread_mutex_lock(&xtr_mutex_sem);
    sigset_t set, old_mask;
    sigemptyset(&set);
    sigaddset(&set, SIGSEGV);
    pthread_sigmask(SIG_UNBLOCK, &set, &old_mask);
    memset(&action, 0, sizeof action);
    action.sa_sigaction = handler;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGSEGV, &action, &saved);
    if (sigsetjmp(jump_point, 1) != 0 || sigsetjmp(jump_point, 1) != 0) return;
    sigaction(SIGSEGV, &saved, nullptr);
    pthread_sigmask(SIG_SETMASK, &old_mask, nullptr);
    pthread_mutex_unlock(&xtr_mutex_sem);
  }
}

void probe(benchmark::State& state) {
  char buffer[4096];
  uint32_t comprc = 0;
  for (auto _ : state) {
    xpce_ckptr(buffer, sizeof buffer, &comprc);
    benchmark::DoNotOptimize(comprc);
  }
}

void probe_fault(benchmark::State& state) {
  uint32_t comprc = 0;
  for (auto _ : state) {
    xpce_ckptr(reinterpret_cast<void*>(16), 4, &comprc);
    benchmark::DoNotOptimize(comprc);
  }
}

void probe_string(benchmark::State& state) {
  uint32_t length = 0, comprc = 0;
  for (auto _ : state) {
    xpce_ckstr("/opt/console/data/wexolog.log", &length, &comprc);
    benchmark::DoNotOptimize(length);
  }
}

}  // namespace

BENCHMARK(floor_probe);
BENCHMARK(probe);
BENCHMARK(probe_fault);
BENCHMARK(probe_string);
BENCHMARK_MAIN();
