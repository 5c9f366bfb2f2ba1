// Arbitrary bytes as the blocks of an exception report's entry: no read outside, and nothing comes out that did not go
// in.
#include "crash_report.h"

#include <algorithm>

#include "fuzz/support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace plov::ctl;
  Event event;
  event.id = {kCrashClass, kCrashType, 0};
  event.name = kCrashName;
  std::vector<std::unique_ptr<uint8_t[]>> memory;
  static constexpr uint8_t kIds[] = {0x03, 0xE0, 0xED, 0xEE, 0xF0};
  // Blocks: id, length, bytes.
  while (size >= 3) {
    const size_t length = std::min<size_t>(data[1] << 8 | data[2], size - 3);
    memory.push_back(exact(data + 3, length));
    event.blocks.push_back({kIds[data[0] % sizeof kIds], {memory.back().get(), length}});
    data += 3 + length;
    size -= 3 + length;
  }
  const std::optional<CrashReport> report = crash_report_of(event);
  require(report.has_value());
  size_t most = 0;
  for (const Block& block : event.blocks) most += block.data.size();
  require(report->registers.size() * 3 <= most && report->frames.size() * 9 <= most);
  require(report->trace.size() <= most && report->backtrace.size() <= most && report->others.size() <= most);
  if (const CallSite* const fault = report->fault())
    require(fault >= report->backtrace.data() && fault < report->backtrace.data() + report->backtrace.size());
  return 0;
}
