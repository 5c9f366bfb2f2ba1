// Translation between code page 500 and the PC code pages.
#include "convert/code_page_tables.h"
#include "xcsf.h"
#include "xtr.h"

using namespace plov::convert;

namespace {

// The result of each byte; for the mark, one in the upper half besides. So one sum over up to kRun results counts the
// marks among them at the cost of an addition each, and the bytes below never reach the count.
using Counting = std::array<uint32_t, 256>;
constexpr uint32_t kOne = 0x10000;
constexpr uint32_t kRun = 256;
static_assert(kRun * 0xFF < kOne);

constexpr Counting counting(const Table& table) {
  Counting results{};
  for (size_t byte = 0; byte < table.size(); ++byte)
    results[byte] = table[byte] == XCSF_UNCONVERTIBLE ? kOne + table[byte] : table[byte];
  return results;
}

struct Pair {
  Counting to_pc, to_host;
};
constexpr Pair k437 = {counting(table_500to437), counting(table_437to500)};
constexpr Pair k850 = {counting(table_500to850), counting(table_850to500)};
constexpr Pair k934and944 = {counting(table_500to934), counting(table_934to500)};
constexpr Pair k938and948 = {counting(table_500to938), counting(table_938to500)};
constexpr Pair k942 = {counting(table_500to942), counting(table_942to500)};
static_assert(&table_500to944 == &table_500to934 && &table_944to500 == &table_934to500);
static_assert(&table_500to948 == &table_500to938 && &table_948to500 == &table_938to500);

const Pair* tables_of(uint32_t code_page) {
  switch (code_page) {
    case 437:
      return &k437;
    case 850:
      return &k850;
    case 934:
    case 944:
      return &k934and944;
    case 938:
    case 948:
      return &k938and948;
    case 942:
      return &k942;
    default:
      return nullptr;
  }
}

// Returns the number of marks. Two bytes a turn, each stored before the next is read: `out` may be `in`.
uint32_t translate(const Counting& results, uint8_t* out, const uint8_t* in, uint32_t count) {
  uint32_t marks = 0;
  while (count != 0) {
    uint32_t run = count < kRun ? count : kRun;
    count -= run;
    uint32_t sum = 0;
    const auto one = [&](uint32_t i) {
      const uint32_t result = results[in[i]];
      out[i] = static_cast<uint8_t>(result);
      sum += result;
    };
    for (; run >= 2; run -= 2, in += 2, out += 2) {
      one(0);
      one(1);
    }
    for (; run != 0; --run, ++in, ++out) one(0);
    marks += sum / kOne;
  }
  return marks;
}

}  // namespace

int32_t xcsf_nls_cvtcode(void* out, const void* in, int32_t count, int32_t direction, uint32_t* code_page,
                         uint32_t* unconvertible) {
  xtr_trace("XCSFNLST: -> xcsf_nls_cvtcode");
  *unconvertible = 0;
  const Pair* tables = tables_of(*code_page);
  if (!tables) {
    // Callers hand over the code page of their display, whatever it is, and read back what they were given.
    *code_page = 850;
    tables = &k850;
  }
  if (count > 0)
    *unconvertible = translate(direction == XCSF_TO_PC ? tables->to_pc : tables->to_host, static_cast<uint8_t*>(out),
                               static_cast<const uint8_t*>(in), static_cast<uint32_t>(count));
  xtr_trace("XCSFNLST: <- xcsf_nls_cvtcode");
  return 0;
}
