// Translation of a code page beside the bare loop over a table, which counts nothing, a copy, and iconv; hexadecimal
// text beside the loop over the tables that one would write. The library's trace lines are part of its time.
#include <benchmark/benchmark.h>
#include <iconv.h>
#include <string.h>

#include <array>
#include <vector>

#include "xcsf.h"

namespace {

using Bytes = std::vector<uint8_t>;

// All bytes, in no order that a predictor learns.
Bytes mixed(size_t size) {
  Bytes bytes(size);
  uint32_t state = 1;
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>((state = state * 1664525 + 1013904223) >> 24);
  return bytes;
}

// What text on a host consists of: letters, digits, blanks.
Bytes host_text(size_t size) {
  Bytes bytes = mixed(size);
  for (uint8_t& byte : bytes) byte = byte < 0x80 ? static_cast<uint8_t>(0x81 + byte % 9) : byte < 0xC0 ? 0x40 : 0xF5;
  return bytes;
}

template <class Work>
void measure(benchmark::State& state, Work work) {
  for (auto _ : state) {
    work();
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

size_t size_of(const benchmark::State& state) {
  return static_cast<size_t>(state.range(0));
}

void cvtcode(benchmark::State& state) {
  const Bytes in = mixed(size_of(state));
  Bytes out(in.size());
  uint32_t page = 850, marks;
  measure(state, [&] {
    xcsf_nls_cvtcode(out.data(), in.data(), static_cast<int32_t>(in.size()), XCSF_TO_PC, &page, &marks);
    benchmark::DoNotOptimize(marks);
  });
}

// Four bytes a turn: a shorter loop runs at half the speed or at the whole, as its code happens to lie.
[[gnu::noinline]] void translate(const uint8_t* table, uint8_t* out, const uint8_t* in, size_t size) {
  for (size_t i = 0; i + 4 <= size; i += 4) {
    out[i] = table[in[i]];
    out[i + 1] = table[in[i + 1]];
    out[i + 2] = table[in[i + 2]];
    out[i + 3] = table[in[i + 3]];
  }
}

void table_loop(benchmark::State& state) {
  const Bytes in = mixed(size_of(state)), table = mixed(256);
  Bytes out(in.size());
  measure(state, [&] { translate(table.data(), out.data(), in.data(), in.size()); });
}

void copy(benchmark::State& state) {
  const Bytes in = mixed(size_of(state));
  Bytes out(in.size());
  measure(state, [&] { memcpy(out.data(), in.data(), in.size()); });
}

// Text, for it stops where it has no character.
void by_iconv(benchmark::State& state) {
  Bytes in = host_text(size_of(state)), out(in.size());
  const iconv_t conversion = iconv_open("IBM850", "IBM500");
  measure(state, [&] {
    auto* from = reinterpret_cast<char*>(in.data());
    auto* to = reinterpret_cast<char*>(out.data());
    size_t left = in.size(), room = out.size();
    if (iconv(conversion, &from, &left, &to, &room) != 0) state.SkipWithError("not converted");
  });
  iconv_close(conversion);
}

void hex2char(benchmark::State& state) {
  const Bytes in = mixed(size_of(state));
  std::vector<char> out(2 * in.size() + 1);
  measure(state, [&] { xcsf_hex2char(out.data(), in.data(), static_cast<uint32_t>(in.size())); });
}

[[gnu::noinline]] void unpack(char* out, const uint8_t* in, size_t size) {
  static const char digits[] = "0123456789ABCDEF";
  for (size_t i = 0; i < size; ++i) {
    *out++ = digits[in[i] >> 4];
    *out++ = digits[in[i] & 15];
  }
  *out = 0;
}

void hex2char_loop(benchmark::State& state) {
  const Bytes in = mixed(size_of(state));
  std::vector<char> out(2 * in.size() + 1);
  measure(state, [&] { unpack(out.data(), in.data(), in.size()); });
}

std::vector<char> hex_text(size_t bytes) {
  std::vector<char> text(2 * bytes + 1);
  unpack(text.data(), mixed(bytes).data(), bytes);
  text.pop_back();
  return text;
}

void char2hex(benchmark::State& state) {
  const std::vector<char> in = hex_text(size_of(state));
  Bytes out(size_of(state));
  measure(state, [&] {
    if (xcsf_char2hex(out.data(), in.data(), static_cast<uint32_t>(in.size())) != 0) state.SkipWithError("not packed");
  });
}

// Returns the first pair that is none, else `size`.
[[gnu::noinline]] size_t pack(const uint8_t* high, const uint8_t* low, uint8_t* out, const char* in, size_t size) {
  for (size_t i = 0; i < size; ++i) {
    const uint8_t first = high[static_cast<uint8_t>(in[2 * i])], second = low[static_cast<uint8_t>(in[2 * i + 1])];
    if ((first & 0x0F) != 0 || second > 0x0F) return i;
    out[i] = first | second;
  }
  return size;
}

void char2hex_loop(benchmark::State& state) {
  const std::vector<char> in = hex_text(size_of(state));
  Bytes out(size_of(state)), high(256, 0xFF), low(256, 0xFF);
  for (uint8_t i = 0; i < 16; ++i) {
    const auto digit = static_cast<uint8_t>("0123456789ABCDEF"[i]);
    high[digit] = static_cast<uint8_t>(i << 4);
    low[digit] = i;
  }
  measure(state, [&] {
    if (pack(high.data(), low.data(), out.data(), in.data(), out.size()) != out.size())
      state.SkipWithError("not packed");
  });
}

void sizes(benchmark::internal::Benchmark* bench) {
  bench->Arg(64)->Arg(4096)->Arg(1 << 20);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::RegisterBenchmark("cvtcode", cvtcode)->Apply(sizes);
  benchmark::RegisterBenchmark("table_loop", table_loop)->Apply(sizes);
  benchmark::RegisterBenchmark("memcpy", copy)->Apply(sizes);
  // Not every machine has the code pages of both word sizes.
  const iconv_t conversion = iconv_open("IBM850", "IBM500");
  if (conversion != reinterpret_cast<iconv_t>(-1)) {
    iconv_close(conversion);
    benchmark::RegisterBenchmark("iconv", by_iconv)->Apply(sizes);
  }
  benchmark::RegisterBenchmark("hex2char", hex2char)->Arg(4096);
  benchmark::RegisterBenchmark("hex2char_loop", hex2char_loop)->Arg(4096);
  benchmark::RegisterBenchmark("char2hex", char2hex)->Arg(4096);
  benchmark::RegisterBenchmark("char2hex_loop", char2hex_loop)->Arg(4096);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
