// What a trace line costs beside its floor: formatting it and storing it with a time stamp into a slot of a ring.
#include <benchmark/benchmark.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include <vector>

#include "xtr.h"

namespace {

struct Slot {
  uint32_t seconds, nanoseconds, pid, tid, length;
  char text[492];
};
std::vector<Slot> ring(8192);
uint32_t next_slot;

void floor_line(const char* format, ...) {
  char text[sizeof ring[0].text];
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  Slot& slot = ring[next_slot++ % ring.size()];
  slot.seconds = static_cast<uint32_t>(now.tv_sec);
  slot.nanoseconds = static_cast<uint32_t>(now.tv_nsec);
  slot.pid = 4711;
  slot.tid = 4712;
  slot.length = static_cast<uint32_t>(length);
  memcpy(slot.text, text, slot.length);
  benchmark::ClobberMemory();
}

const char* volatile name = "wexolog.log";

void floor_detail(benchmark::State& state) {
  int bytes = 0;
  for (auto _ : state) floor_line("XLOG   F: log_file = %s, %d bytes, crc= 0x%X", name, bytes++, 0x1501u);
}

void trace_detail(benchmark::State& state) {
  int bytes = 0;
  for (auto _ : state) xtr_trace("XLOG   F: log_file = %s, %d bytes, crc= 0x%X", name, bytes++, 0x1501u);
}

void floor_entry(benchmark::State& state) {
  for (auto _ : state) floor_line("XDFCSF T: -> xdfc_search_file_open2");
}

void trace_entry(benchmark::State& state) {
  for (auto _ : state) xtr_trace("XDFCSF T: -> xdfc_search_file_open2");
}

void fetch_thread(benchmark::State& state) {
  std::vector<char> buffer(40960);
  uint32_t count, code;
  for (auto _ : state) xtr_fetch_tid(buffer.data(), 40960, 1, &count, &code);
}

}  // namespace

BENCHMARK(floor_detail);
BENCHMARK(trace_detail);
BENCHMARK(trace_detail)->Threads(2);
BENCHMARK(floor_entry);
BENCHMARK(trace_entry);
BENCHMARK(fetch_thread);
BENCHMARK_MAIN();
