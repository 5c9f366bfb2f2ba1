#include <errno.h>
#include <gmock/gmock.h>
#include <stdlib.h>
#include <sys/mman.h>

#include <algorithm>
#include <random>

#include "log/codec/codec.h"
#include "support/files.h"
#include "support/pages.h"
#include "support/sanitized.h"
#include "support/slow_codec.h"
#include "support/trace_double.h"
#include "xlog.h"

namespace {

unsigned fail_at, live_blocks;  // which allocation fails, counted down; 0: none

}  // namespace

void* plovmemdebug_malloc(size_t size, const char*, int32_t) {
  if (fail_at != 0 && --fail_at == 0) {
    errno = ENOMEM;
    return nullptr;
  }
  ++live_blocks;
  // Never zero by luck: no table may count on cleared memory.
  return memset(malloc(size), 0xE7, size);
}

void plovmemdebug_free(void* block, const char*, int32_t) {
  live_blocks -= block != nullptr;
  free(block);
}

namespace {

using test::Pages;
using test::sample;
using testing::Contains;
using testing::ElementsAre;

constexpr size_t kRoom = 0x1FE00;

// A copy of `bytes` that ends where the memory does.
class AtHole {
 public:
  explicit AtHole(const std::string& bytes) : pages_(bytes.size() / test::kPage + 1, PROT_READ | PROT_WRITE) {
    start_ = pages_.end() - bytes.size();
    std::copy(bytes.begin(), bytes.end(), start_);
  }
  uint8_t* start() const { return start_; }
  std::string bytes(size_t count) const { return {reinterpret_cast<char*>(start_), count}; }

 private:
  Pages pages_;
  uint8_t* start_;
};

struct Outcome {
  int32_t sysrc;
  uint32_t comprc;
  uint32_t length;
  std::string bytes;
};

// Input and output end at a hole each, so that any access behind them ends the test.
template <class Function>
Outcome run(Function&& function, const std::string& data, size_t capacity, size_t readable) {
  const AtHole input(data), output(std::string(readable, '.'));
  xlog_mem_block block{input.start(), static_cast<uint32_t>(data.size()), output.start(),
                       static_cast<uint32_t>(capacity)};
  Outcome outcome{0, 0, 0, ""};
  outcome.sysrc = function(block, &outcome.comprc);
  outcome.length = block.output_length;
  outcome.bytes = output.bytes(std::min<size_t>(block.output_length, readable));
  return outcome;
}

Outcome encode(const std::string& data, size_t capacity = kRoom) {
  return run(
      [](xlog_mem_block& block, uint32_t* comprc) {
        *comprc = plov::codec::encode(block);
        return 0;
      },
      data, capacity, capacity);
}

Outcome decode(const std::string& data, size_t capacity = kRoom) {
  return run([](xlog_mem_block& block, uint32_t* comprc) { return plov::codec::decode(block, comprc); }, data, capacity,
             capacity);
}

// What the fast decoder must make of any block: what the slow one does.
void expect_decoded_alike(const std::string& block, size_t capacity) {
  const test::SlowExpanded slow = test::slow_decode(block, capacity);
  const Outcome fast = decode(block, capacity);
  ASSERT_EQ(fast.sysrc, slow.whole ? 0 : 2);
  ASSERT_EQ(fast.comprc, slow.whole ? 0 : XLOG_DECODE_CUT);
  ASSERT_EQ(fast.length, slow.data.size());
  ASSERT_TRUE(fast.bytes == slow.data);
}

std::string block_of(const std::vector<unsigned>& codes) {
  return test::slow_pack(codes);
}

// Ours equals the slow one's, and each reads it back.
void expect_encoded_alike(plov::codec::Encoder& encoder, plov::codec::Decoder& decoder, const std::string& data) {
  const Outcome encoded = run(
      [&](xlog_mem_block& block, uint32_t* comprc) {
        *comprc = encoder.encode(block);
        return 0;
      },
      data, kRoom, kRoom);
  ASSERT_EQ(encoded.comprc, 0u);
  ASSERT_TRUE(encoded.bytes == test::slow_encode(data)) << data.size() << " bytes: " << data.substr(0, 80);
  ASSERT_TRUE(test::slow_decode(encoded.bytes, kRoom).data == data);
  const Outcome expanded = run([&](xlog_mem_block& block, uint32_t* comprc) { return decoder.decode(block, comprc); },
                               encoded.bytes, data.size(), data.size());
  ASSERT_EQ(expanded.sysrc, 0);
  ASSERT_TRUE(expanded.bytes == data);
}

TEST(Codec, BytesOfTheFormat) {
  const std::string head("\5\1\4\0........", 12);
  EXPECT_EQ(encode("").bytes, head + std::string(6, '\0'));
  EXPECT_EQ(encode("ababab").bytes, head + std::string("\x06\x20\x63\x10\x21\x02\0\0\0\0\0\0", 12));
  EXPECT_EQ(encode("aaaaaaaa").bytes, block_of({98, 98, 258, 259, 98, 0, 0, 0, 0}));
  EXPECT_EQ(encode(std::string("\0\xFF", 2)).bytes, block_of({1, 256, 0, 0, 0, 0}));
  // An odd number of codes with the end codes: the last of them is dropped.
  EXPECT_EQ(encode("aaa").bytes, block_of({98, 98, 98, 0, 0, 0}));
  // 258 and 259 both spell "aa": the newer one is named.
  EXPECT_EQ(encode("aaabaa").bytes, block_of({98, 98, 98, 99, 259, 0, 0, 0, 0}));
}

TEST(Codec, EncodesAndExpandsAsTheSlowOne) {
  plov::codec::Encoder encoder;
  plov::codec::Decoder decoder;
  for (unsigned number = 0; number < 3000 && !HasFatalFailure(); number += test::kStep)
    expect_encoded_alike(encoder, decoder, sample(number, number % 331));
  // Long enough to recycle, and the largest block of a log.
  for (unsigned number = 0; number < 8 && !HasFatalFailure(); ++number)
    expect_encoded_alike(encoder, decoder, sample(number, number % 5 == 1 ? 9000 : number < 10 ? 65280 : 20000));
  for (const char* file : {"/proc/cpuinfo", "/proc/self/smaps", "/proc/self/exe", "/usr/share/common-licenses/GPL-3"})
    if (!HasFatalFailure()) expect_encoded_alike(encoder, decoder, test::read_file(file).substr(0, 40000));
}

TEST(Codec, BytesAreTheSameOnEveryMachine) {
  uint32_t sum = 2166136261u;
  for (unsigned number = 0; number < 10; ++number)
    for (const char byte : encode(sample(number, 30000)).bytes) sum = (sum ^ static_cast<uint8_t>(byte)) * 16777619u;
  EXPECT_EQ(sum, 2160628740u);
}

TEST(Codec, ExpandsAnyCodesAsTheSlowOne) {
  std::mt19937 random(1);
  for (unsigned round = 0; round < 400 && !HasFatalFailure(); ++round) {
    // Mostly live codes; with many silent ones, so that strings stay short and the dictionary gets full.
    std::vector<unsigned> codes;
    const unsigned count = round % 4 != 0 ? random() % 60 : 4000 + random() % 8000, rare = round % 4 != 0 ? 40 : 9000;
    for (unsigned i = 0; i < count; ++i) {
      const unsigned live = std::min(257 + i, 4095u), kind = random() % 16;
      codes.push_back(random() % rare == 0 ? random() % 4096
                      : kind == 0          ? 1 + random() % 256
                      : kind < 13          ? 257
                                           : 257 + random() % (live - 256));
    }
    const std::string block = block_of(codes);
    expect_decoded_alike(block.substr(0, block.size() - random() % 3), round % 3 == 0 ? random() % 50 : kRoom);
  }
  for (unsigned round = 0; round < 300 && !HasFatalFailure(); ++round)
    expect_decoded_alike("\1" + sample(round * 5 + 1, random() % 100), random() % 300);
}

TEST(Codec, ABlockCutAnywhereGivesWhatItsWholeCodesSay) {
  const std::string data = sample(4, 300), block = encode(data).bytes;
  for (size_t size = 1; size <= block.size() && !HasFatalFailure(); ++size) {
    expect_decoded_alike(block.substr(0, size), kRoom);
    const Outcome cut = decode(block.substr(0, size));
    EXPECT_EQ(cut.sysrc, 0);
    EXPECT_EQ(cut.bytes, data.substr(0, cut.length));
  }
}

TEST(Codec, ACodeThatIsNotLiveEndsTheBlock) {
  const std::vector<std::vector<unsigned>> blocks = {
      {258}, {98, 258}, {98, 99, 259}, {98, 99, 258, 4095}, {257, 257, 259}};
  const char* const expected[] = {"", "a", "ab", "abab", ""};
  for (size_t i = 0; i < blocks.size(); ++i) {
    const Outcome outcome = decode(block_of(blocks[i]) + "...");
    EXPECT_EQ(outcome.sysrc, 2);
    EXPECT_EQ(outcome.comprc, XLOG_DECODE_CUT);
    EXPECT_EQ(outcome.bytes, expected[i]);
  }
}

TEST(Codec, NestedPairsNeitherPassTheOutputNorTakeForEver) {
  for (const unsigned first : {98u, 257u}) {
    std::vector<unsigned> codes = {first, first};
    // 4095, of the step before, is all that may be recycled when the dictionary is full; then it is not live.
    for (unsigned code = 258; code < 4095; ++code) codes.push_back(code);
    codes.insert(codes.end(), 50001, 4094);
    const Outcome outcome = decode(block_of(codes), 70000);
    EXPECT_EQ(outcome.sysrc, first == 98 ? 2 : 0);
    EXPECT_EQ(outcome.bytes, std::string(first == 98 ? 70000 : 0, 'a'));
  }
}

TEST(Codec, OutputIsCutAtItsCapacity) {
  const std::string data = sample(4, 200), block = encode(data).bytes;
  for (size_t capacity = 0; capacity <= data.size(); ++capacity) {
    const Outcome outcome = decode(block, capacity);
    EXPECT_EQ(outcome.comprc, capacity < data.size() ? XLOG_DECODE_CUT : 0);
    EXPECT_EQ(outcome.sysrc, capacity < data.size() ? 2 : 0);
    EXPECT_EQ(outcome.bytes, data.substr(0, capacity));
  }
}

TEST(Codec, CodesAreCutAtTheCapacity) {
  for (const std::string& data : {std::string(), std::string("aaa"), sample(4, 100)}) {
    const std::string whole = test::slow_encode(data);
    const size_t codes = test::slow_codes(data).size();
    for (size_t capacity = 0; capacity <= whole.size() + 2; ++capacity) {
      const Outcome outcome = encode(data, capacity);
      // A last code without partner is never written, yet must fit.
      const bool fits = 12 + codes * 3 / 2 <= capacity;
      const size_t kept = capacity < 12 ? 0 : (capacity - 12) * 2 / 3 / 2 * 3;
      EXPECT_EQ(outcome.comprc, fits ? 0 : XLOG_ENCODE_CUT + 3);
      EXPECT_EQ(outcome.length, fits ? whole.size() : 12 + kept);
      EXPECT_EQ(outcome.bytes, whole.substr(0, std::min<size_t>(outcome.length, capacity)));
    }
  }
}

TEST(Codec, TheCutSaysWhichGroupFoundIt) {
  const std::string data = sample(1, 12000);
  const std::vector<unsigned> codes = test::slow_codes(data);
  // The end match is one of the main loop's codes; a group is written as soon as it has 10240.
  const std::pair<size_t, uint32_t> cases[] = {{10239, XLOG_ENCODE_CUT},
                                               {10238, XLOG_ENCODE_CUT + 1},
                                               {10237, XLOG_ENCODE_CUT + 2},
                                               {10236, XLOG_ENCODE_CUT + 3},
                                               {10300, XLOG_ENCODE_CUT}};
  for (const auto& [count, comprc] : cases) {
    std::vector<unsigned> kept(codes.begin(), codes.begin() + static_cast<long>(count));
    kept.insert(kept.end(), 4, 0);
    const std::string whole = block_of(kept);
    const std::string part = data.substr(0, test::slow_decode(whole, kRoom).data.size());
    for (const size_t capacity : {1000u, 1001u, 1002u}) {
      const Outcome outcome = encode(part, capacity);
      EXPECT_EQ(outcome.comprc, comprc);
      EXPECT_EQ(outcome.bytes, whole.substr(0, 12 + (capacity - 12) * 2 / 3 / 2 * 3));
    }
    EXPECT_EQ(encode(part, 12 + (count + 4) * 3 / 2).comprc, 0u);
  }
}

TEST(Codec, EachFailedAllocationHasItsCode) {
  const char* const texts[] = {
      "XLOG   F: Memory allocate failed with 12",   "XLOG   F: Memory allocate 1 failed with 12",
      "XLOG   F: Memory allocate 2 failed with 12", "XLOG   F: Memory allocate 3 failed with 12",
      "XLOG   F: Memory allocate 4 failed with 12", "XLOG   F: Memory allocate 5 failed with 12"};
  const std::string data = sample(4, 5000), block = encode(data).bytes;
  for (unsigned i = 0; i < 6; ++i) {
    trace_count = 0;
    fail_at = i + 1;
    const Outcome outcome = encode(data);
    EXPECT_EQ(outcome.comprc, 0x9001 + i);
    EXPECT_EQ(outcome.length, i == 0 ? 0u : 12u);
    EXPECT_EQ(outcome.bytes, i == 0 ? "" : block.substr(0, 12));
    EXPECT_THAT(traced(), ElementsAre(texts[i]));
    EXPECT_EQ(live_blocks, 0u);
  }
  for (unsigned i = 0; i < 3; ++i) {
    trace_count = 0;
    fail_at = i + 1;
    const Outcome outcome = decode(block);
    EXPECT_EQ(outcome.sysrc, 2);
    EXPECT_EQ(outcome.comprc, 0x9007 + i);
    EXPECT_EQ(outcome.length, 0u);
    EXPECT_EQ(traced(), i == 0   ? std::vector<std::string>{}
                        : i == 1 ? std::vector<std::string>{"XLOG   F: malloc failed with 12"}
                                 : std::vector<std::string>{"XLOG   F: malloc 1 failed with 12"});
    EXPECT_EQ(live_blocks, 0u);
  }
}

TEST(Codec, TablesThatCouldNotGrowServeTheNextBlock) {
  const std::string data = sample(4, 5000), block = encode(data).bytes;
  for (unsigned i = 0; i < 6; ++i) {
    plov::codec::Encoder encoder;
    plov::codec::Decoder decoder;
    expect_encoded_alike(encoder, decoder, sample(4, 40 * i));
    char area[64];
    uint32_t comprc;
    xlog_mem_block large{data.data(), static_cast<uint32_t>(data.size()), area, sizeof area};
    fail_at = i + 1;
    EXPECT_EQ(encoder.encode(large), 0x9001 + i);
    large = {block.data(), static_cast<uint32_t>(block.size()), area, sizeof area};
    fail_at = i % 3 + 1;
    EXPECT_EQ(decoder.decode(large, &comprc), 2);
    EXPECT_EQ(comprc, 0x9007 + i % 3);
    expect_encoded_alike(encoder, decoder, sample(4, 40 * i));
  }
  EXPECT_EQ(live_blocks, 0u);
}

TEST(Codec, AStoredBlockIsCopiedWhateverTheCapacity) {
  trace_count = 0;
  const auto stored = [](xlog_mem_block& block, uint32_t* comprc) { return plov::codec::decode(block, comprc); };
  const Outcome outcome = run(stored, "\xFFpower", 2, 5);
  EXPECT_EQ(outcome.sysrc, 0);
  EXPECT_EQ(outcome.bytes, "power");
  EXPECT_EQ(run(stored, "\xFF", 9, 9).length, 0u);
  EXPECT_THAT(traced(), ElementsAre("XLOG   D: block not tersed", "XLOG   D: block not tersed"));
}

TEST(Codec, ExpansionIsTraced) {
  const std::string block = encode("ababab").bytes;
  trace_count = 0;
  decode(block);
  EXPECT_THAT(traced(), ElementsAre("XLOG   D: source data size = 24", "XLOG   D: outputcount = 6"));
  const Outcome nothing = decode("");
  EXPECT_EQ(nothing.sysrc, 0);
  EXPECT_EQ(nothing.length, 0u);
}

// Beside the bad pointers that every exported call refuses.
TEST(Codec, ExportedCallsProbeTheWholeOfBothAreas) {
  const Pages hole(1, PROT_NONE);
  const std::string data = "ababab", block = encode(data).bytes, stored = "\xFFpower";
  char area[64];
  uint32_t comprc = 7;
  const auto call = [&](const void* input, size_t length, void* output, uint32_t capacity) {
    return xlog_mem_block{input, static_cast<uint32_t>(length), output, capacity};
  };
  for (xlog_mem_block bad : {call(stored.data(), stored.size(), hole.begin(), 0), call(area, 0xFFFFFFFF, area, 9)}) {
    const uint32_t before = bad.output_length;
    EXPECT_EQ(xlog_mem_decode(&bad, &comprc), 2);
    EXPECT_EQ(comprc, XLOG_DECODE_BAD_ARGUMENT);
    EXPECT_EQ(bad.output_length, before);
  }
  xlog_mem_block good = call(data.data(), data.size(), area, sizeof area);
  EXPECT_EQ(xlog_mem_encode(&good, &comprc), 0);
  EXPECT_EQ(comprc, 0u);
  EXPECT_EQ(std::string(area, good.output_length).substr(12), block.substr(12));
  char expanded[6];
  trace_count = 0;
  xlog_mem_block back = call(area, good.output_length, expanded, 5);
  EXPECT_EQ(xlog_mem_decode(&back, &comprc), 2);
  EXPECT_EQ(comprc, XLOG_DECODE_CUT);
  EXPECT_THAT(traced(), Contains("XLOG   F:    xlog_mem_decode: src= 0x2, crc= 0x9015"));
  back.output_length = 6;
  EXPECT_EQ(xlog_mem_decode(&back, &comprc), 0);
  EXPECT_EQ(std::string(expanded, back.output_length), data);
}

}  // namespace
