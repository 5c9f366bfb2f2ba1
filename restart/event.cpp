#include "restart/event.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <string_view>

#include "frame/probe.h"
#include "xlog.h"

namespace plov::restart {
namespace {

constexpr uint8_t kType = 102;
constexpr uint16_t kUser = 1;
constexpr uint32_t kGdsLimit = 8192;
constexpr uint8_t kGdsBlock = 4, kFirstSecondaryBlock = 5;
constexpr size_t kSecondaryLimit = 5;

const char* text_of(const char* line) {
  return line ? line : "(Null Message)";
}

void put_text(std::span<char> field, std::string_view text) {
  std::copy_n(text.begin(), std::min(text.size(), field.size()), field.begin());
}

// The blocks behind the header, chained in their order.
class Chain {
 public:
  void add(uint8_t id, const void* data, uint32_t size) {
    nodes_[count_] = {size, id, data, nullptr};
    if (count_ > 0) nodes_[count_ - 1].next = &nodes_[count_];
    ++count_;
  }
  xlog_data_node* first() { return count_ > 0 ? nodes_ : nullptr; }

 private:
  xlog_data_node nodes_[1 + kSecondaryLimit] = {};
  size_t count_ = 0;
};

// The GDS block is probed here: one that has gone must not cost the whole entry.
void add_gds(Chain& chain, const void* gds) {
  if (!gds) {
    restart_trace('F', "   log_it_bt: NO GDS Secondary Block");
    return;
  }
  restart_trace('F', "   log_it_bt: Adding GDS Secondary Block");
  uint8_t prefix[2] = {};
  uint32_t scratch;
  const bool there = frame::copy_foreign(prefix, gds, sizeof prefix) == frame::Copied::whole;
  const uint32_t size = std::min<uint32_t>(prefix[0] << 8 | prefix[1], kGdsLimit);
  if (there && frame::probe(gds, size, frame::Access::read, &scratch) == 0)
    chain.add(kGdsBlock, gds, size);
  else
    restart_trace('F', " WARNING: GDS addressability was lost!");
}

uint32_t write(xlog_microcode_request& request) {
  uint32_t comprc = 0;
  const int32_t sysrc = xlog_microcode_log(&request, &comprc);
  if (sysrc == 0) return 0;
  restart_trace('F', "log_it: xlog_microcode_log had a problem - Src=%u, Crc=%u ", static_cast<uint32_t>(sysrc),
                comprc);
  return comprc;
}

}  // namespace

EventHeader set_header(const char* function, const char* line1, const char* line2, uint32_t id) {
  EventHeader header;
  memset(&header, ' ', sizeof header);
  char margin[64], text[256];
  snprintf(margin, sizeof margin, ">%*s", static_cast<int>(strlen(function)) - 1, "");
  int length = snprintf(text, sizeof text, "%s: (%X) %s", function, id, text_of(line1));
  put_text(header.line1, {text, std::min<size_t>(length, sizeof text - 1)});
  length = snprintf(text, sizeof text, "%s: (%X) %s", margin, id, text_of(line2));
  put_text(header.line2, {text, std::min<size_t>(length, sizeof text - 1)});
  return header;
}

uint32_t log_it_bt(RestartRecord& record, const char* function, const char* line1, const char* line2, uint32_t id,
                   uint32_t kind, std::span<const SecondaryBlock> secondary) {
  EventHeader header = set_header(function, line1, line2, id);
  for (const auto& line : {header.line1, header.line2})
    restart_trace('F', "%.*s", static_cast<int>(sizeof header.line1), line);

  xlog_microcode_request request = {};
  request.type = kType;
  request.user = kUser;
  request.options = kind | XLOG_STANDARD_LOG_FLAG;
  put_text(request.event_name, record.kind == kKindRestart ? "RESTART" : "UnKnown");
  request.error_code = static_cast<uint16_t>(id);
  request.extension = record.data;
  request.data = &header;
  request.data_size = sizeof header;

  Chain chain;
  add_gds(chain, record.gds);
  uint8_t block_id = kFirstSecondaryBlock;
  for (const SecondaryBlock& block : secondary.first(std::min(secondary.size(), kSecondaryLimit))) {
    restart_trace('F', "   log_it_bt: Adding Secondary Block");
    chain.add(block_id++, block.data, block.size);
  }
  request.chain = chain.first();

  if (record.reboot_requested) {
    restart_trace('F', "log_it_bt: Reboot requested");
    put_text(header.reboot, "Reboot requested");
    request.options |= XLOG_MICROCODE_RESTART_2;
  }
  record.reboot_requested = 0;
  return write(request);
}

}  // namespace plov::restart
