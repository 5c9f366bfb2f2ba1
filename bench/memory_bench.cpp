// The debug allocator beside the C library's: blocks of 64 bytes, one at a time and in batches as a reader takes them.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <vector>

#include "plovmemdebug.h"

namespace {

void* debug_malloc(size_t size) {
  return plovmemdebug_malloc(size, __FILE__, __LINE__);
}

void debug_free(void* block) {
  plovmemdebug_free(block, __FILE__, __LINE__);
}

template <auto allocate, auto release>
void batch(benchmark::State& state) {
  std::vector<void*> blocks(static_cast<size_t>(state.range(0)));
  for (auto _ : state) {
    for (void*& block : blocks) block = allocate(64);
    benchmark::ClobberMemory();
    for (void* block : blocks) release(block);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

}  // namespace

BENCHMARK(batch<malloc, free>)->Name("floor_malloc")->Arg(1)->Arg(20000);
BENCHMARK(batch<debug_malloc, debug_free>)->Name("debug_malloc")->Arg(1)->Arg(20000);
BENCHMARK_MAIN();
