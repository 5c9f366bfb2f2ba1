#include "support/log_calls.h"

#include <gtest/gtest.h>
#include <string.h>

#include <memory>

#include "support/retrieval.h"

namespace test {

Result record(const Event& event) {
  std::vector<xlog_data_node> nodes(event.blocks.size());
  for (size_t i = 0; i < nodes.size(); ++i)
    nodes[i] = {static_cast<uint32_t>(event.blocks[i].bytes.size()), event.blocks[i].id, event.blocks[i].bytes.data(),
                i + 1 < nodes.size() ? &nodes[i + 1] : nullptr};
  auto request = std::make_unique<xlog_log_request>();
  *request = {};
  request->flags = event.flags;
  request->eventid = {event.classes, event.type, event.user};
  memcpy(request->event_name, event.name.data(), std::min<size_t>(event.name.size(), XLOG_NAME_SIZE));
  memcpy(request->target_session, event.target.data(), event.target.size());
  request->data = nodes.empty() ? nullptr : nodes.data();
  Result result = {};
  result.sysrc = xlog_record(request.get(), &result.comprc);
  result.eventid = request->eventid;
  result.timestamp = request->timestamp;
  return result;
}

std::vector<ReadLog> read_all(const std::string& target) {
  Retrieval retrieval(XLOG_OPT_ALL_CLASSES, {}, target.c_str());
  EXPECT_EQ(retrieval.run(), 0) << "xlog_retrieve, comprc " << std::hex << retrieval.comprc;
  std::vector<ReadLog> logs;
  for (const xlog_log_entry* entry = retrieval.result; entry; entry = entry->next) {
    logs.push_back(
        {entry->eventid, entry->timestamp, std::string(entry->event_name, XLOG_NAME_SIZE), entry->flags, {}});
    for (const xlog_block_entry* b = entry->blocks; b; b = b->next)
      logs.back().blocks.push_back({b->block_id, std::string(reinterpret_cast<const char*>(b->data), b->length)});
  }
  EXPECT_EQ(logs.size(), retrieval.count);
  EXPECT_EQ(retrieval.free(), 0);
  return logs;
}

void PrintTo(const Result& result, std::ostream* out) {
  *out << "sysrc " << result.sysrc << ", comprc 0x" << std::hex << result.comprc << std::dec;
}

}  // namespace test
