// The block codec beside LZW of the same code width, zlib and lz4, on the blocks that a log holds and on text.
//
// Each case goes round many blocks of its kind, so that no predictor learns one by heart. `once` has tables of its own
// for each block, `kept` keeps them as a retrieval does; zlib and lz4 make or keep theirs as their callers do. `ratio`
// is encoded size by size. Traces are left out: the others have none.
#include <benchmark/benchmark.h>
#include <lz4.h>
#include <stdio.h>
#include <string.h>
#include <zlib.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "log/codec/codec.h"
#include "lzw12.h"
#include "xtr.h"

int32_t xtr_trace(const char*, ...) {
  return 0;
}

namespace {

using Block = std::vector<uint8_t>;
using Blocks = std::vector<Block>;

std::string read_file(const char* path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// Pieces of `size` bytes of `text`, which is repeated when it is too short for one.
Blocks pieces(std::string text, size_t size) {
  while (text.size() < size) text += text.empty() ? std::string(1, ' ') : text;
  Blocks blocks;
  for (size_t at = 0; at + size <= text.size() && blocks.size() < 4096; at += size)
    blocks.emplace_back(text.begin() + static_cast<long>(at), text.begin() + static_cast<long>(at + size));
  return blocks;
}

std::string licences() {
  std::string text;
  for (const char* name : {"GPL-3", "GFDL-1.3", "LGPL-2.1", "MPL-2.0", "Apache-2.0", "Artistic", "GPL-2", "MPL-1.1"})
    text += read_file((std::string("/usr/share/common-licenses/") + name).c_str());
  return text;
}

std::string kernel_texts() {
  std::string text;
  for (const char* name :
       {"self/smaps", "cpuinfo", "kallsyms", "vmstat", "interrupts", "meminfo", "mounts", "zoneinfo"})
    text += read_file((std::string("/proc/") + name).c_str()).substr(0, 60000);
  return text;
}

std::string standard_blocks() {
  std::string text;
  for (unsigned i = 0; i < 4096; ++i) {
    char block[82] = {0, 1};
    snprintf(block + 2, sizeof block - 2, "%s", i % 3 ? "vemra_console" : "java");
    const uint32_t ids[] = {1200 + i * 7 % 311, 1200 + i * 13 % 977, 0x5F3A0000 + i * 31};
    memcpy(block + 54, ids, sizeof ids);
    text.append(block, sizeof block);
  }
  return text;
}

std::string trace_text() {
  static const char* const lines[] = {
      "XLOG   T: -> xlog_record",
      "XDFCQFLF:    Looking for [wexolog.log]",
      "XPCE___F:    xpce_setup: Global signal handler already installed for this process.",
      "XLOG   D: block size = %u",
      "XLOG   F: log class = 0x%x",
      "XDFCQFLD:    searching path [/console/bin%u] for [ywkpgm].",
      "XLOG   T: <- xlog_record"};
  std::string text;
  for (unsigned i = 0; text.size() < 200000; ++i) {
    char line[160];
    const int head = snprintf(line, sizeof line, "14:%02u:%02u.%06u %5u %5u ", i / 600 % 60, i / 10 % 60,
                              i * 7919 % 1000000, 1200 + i % 3, 1200 + i % 11);
    snprintf(line + head, sizeof line - static_cast<size_t>(head), lines[i * 5 % 7], i % 977);
    text += line;
    text += '\n';
  }
  return text;
}

const Blocks& blocks_of(int64_t kind, int64_t size) {
  static std::vector<std::pair<std::pair<int64_t, int64_t>, Blocks>> made;
  for (auto& [key, blocks] : made)
    if (key == std::make_pair(kind, size)) return blocks;
  static const std::string texts[] = {standard_blocks(), trace_text(), licences(), kernel_texts()};
  made.reserve(64);
  made.emplace_back(std::make_pair(kind, size), pieces(texts[kind], static_cast<size_t>(size)));
  return made.back().second;
}

// Each contender: encode into and decode from areas that are large enough; 0 is a failure.
struct Ours {
  plov::codec::Encoder encoder;
  plov::codec::Decoder decoder;
  size_t encode(const Block& in, Block& out) {
    xlog_mem_block call{in.data(), static_cast<uint32_t>(in.size()), out.data(), static_cast<uint32_t>(out.size())};
    return encoder.encode(call) == 0 ? call.output_length : 0;
  }
  size_t decode(const Block& in, Block& out) {
    xlog_mem_block call{in.data(), static_cast<uint32_t>(in.size()), out.data(), static_cast<uint32_t>(out.size())};
    uint32_t comprc;
    return decoder.decode(call, &comprc) == 0 ? call.output_length : 0;
  }
};

struct OursOnce {
  size_t encode(const Block& in, Block& out) { return Ours().encode(in, out); }
  size_t decode(const Block& in, Block& out) { return Ours().decode(in, out); }
};

struct Lzw12 {
  bench::LzwEncoder encoder;
  bench::LzwDecoder decoder;
  size_t encode(const Block& in, Block& out) { return encoder.encode(in.data(), in.size(), out.data()); }
  size_t decode(const Block& in, Block& out) { return decoder.decode(in.data(), in.size(), out.data(), out.size()); }
};

template <int kLevel>
struct Zlib {
  size_t encode(const Block& in, Block& out) {
    uLongf size = out.size();
    return compress2(out.data(), &size, in.data(), in.size(), kLevel) == Z_OK ? size : 0;
  }
  size_t decode(const Block& in, Block& out) {
    uLongf size = out.size();
    return uncompress(out.data(), &size, in.data(), in.size()) == Z_OK ? size : 0;
  }
};

struct Lz4 {
  size_t encode(const Block& in, Block& out) {
    return static_cast<size_t>(LZ4_compress_default(reinterpret_cast<const char*>(in.data()),
                                                    reinterpret_cast<char*>(out.data()), static_cast<int>(in.size()),
                                                    static_cast<int>(out.size())));
  }
  size_t decode(const Block& in, Block& out) {
    return static_cast<size_t>(LZ4_decompress_safe(reinterpret_cast<const char*>(in.data()),
                                                   reinterpret_cast<char*>(out.data()), static_cast<int>(in.size()),
                                                   static_cast<int>(out.size())));
  }
};

constexpr size_t kRoom = 0x1FE00;

template <class Codec>
void encode(benchmark::State& state) {
  const Blocks& blocks = blocks_of(state.range(0), state.range(1));
  static Codec codec;
  Block area(kRoom);
  size_t in = 0, out = 0, i = 0;
  for (auto _ : state) {
    const size_t size = codec.encode(blocks[i], area);
    if (size == 0) return state.SkipWithError("not encoded");
    in += blocks[i].size();
    out += size;
    if (++i == blocks.size()) i = 0;
  }
  state.SetBytesProcessed(static_cast<int64_t>(in));
  state.counters["ratio"] = static_cast<double>(out) / static_cast<double>(in);
}

template <class Codec>
void decode(benchmark::State& state) {
  const Blocks& blocks = blocks_of(state.range(0), state.range(1));
  static Codec codec;
  Block area(kRoom);
  Blocks encoded;
  for (const Block& block : blocks) {
    const size_t size = codec.encode(block, area);
    encoded.emplace_back(area.begin(), area.begin() + static_cast<long>(size));
    if (codec.decode(encoded.back(), area) != block.size() || memcmp(area.data(), block.data(), block.size()) != 0)
      return state.SkipWithError("not expanded to what was encoded");
  }
  size_t out = 0, i = 0;
  for (auto _ : state) {
    out += codec.decode(encoded[i], area);
    benchmark::DoNotOptimize(area.data());
    benchmark::ClobberMemory();
    if (++i == encoded.size()) i = 0;
  }
  state.SetBytesProcessed(static_cast<int64_t>(out));
}

void cases(benchmark::internal::Benchmark* bench) {
  bench->ArgNames({"kind", "size"})
      ->Args({0, 82})    // standard blocks
      ->Args({1, 4000})  // trace
      ->Args({2, 82})    // licences
      ->Args({2, 1024})
      ->Args({2, 4096})
      ->Args({2, 40960})
      ->Args({2, 65280})
      ->Args({3, 1024})  // the kernel's texts
      ->Args({3, 40960});
}

BENCHMARK_TEMPLATE(encode, OursOnce)->Name("encode/once")->Apply(cases);
BENCHMARK_TEMPLATE(encode, Ours)->Name("encode/kept")->Apply(cases);
BENCHMARK_TEMPLATE(encode, Lzw12)->Name("encode/lzw12")->Apply(cases);
BENCHMARK_TEMPLATE(encode, Zlib<1>)->Name("encode/zlib-1")->Apply(cases);
BENCHMARK_TEMPLATE(encode, Zlib<6>)->Name("encode/zlib-6")->Apply(cases);
BENCHMARK_TEMPLATE(encode, Lz4)->Name("encode/lz4")->Apply(cases);
BENCHMARK_TEMPLATE(decode, OursOnce)->Name("decode/once")->Apply(cases);
BENCHMARK_TEMPLATE(decode, Ours)->Name("decode/kept")->Apply(cases);
BENCHMARK_TEMPLATE(decode, Lzw12)->Name("decode/lzw12")->Apply(cases);
BENCHMARK_TEMPLATE(decode, Zlib<6>)->Name("decode/zlib")->Apply(cases);
BENCHMARK_TEMPLATE(decode, Lz4)->Name("decode/lz4")->Apply(cases);

}  // namespace

BENCHMARK_MAIN();
