// The report of a recorded event to problem analysis.
#include <string.h>

#include <algorithm>

#include "frame/call.h"
#include "frame/caller_memory.h"
#include "xlog.h"

namespace plov::log {
namespace {

constexpr uint32_t kRequestWord = 100;

// From the first error block of the chain; a shorter one is filled with zeros. The event is reported whether or not it
// has one, so a chain that cannot be read has none.
xlog_error_block find_error_detail(const xlog_data_node* next) {
  xlog_error_block detail = {};
  xlog_data_node node;
  for (uint32_t i = 0; next && i < XLOG_MAX_BLOCKS; ++i, next = node.next) {
    if (!frame::take_from_caller(&node, next, sizeof node, frame::Access::read)) break;
    if (node.block_id != XLOG_ERROR_BLOCK_ID) continue;
    uint8_t bytes[sizeof detail] = {};
    const size_t size = std::min<size_t>(sizeof bytes, node.data_size);
    if (size > 0 && frame::take_from_caller(bytes, node.data_ptr, size, frame::Access::read))
      memcpy(&detail, bytes, sizeof detail);
    break;
  }
  return detail;
}

void report(frame::Call& call, const xlog_log_request& request) {
  const xlog_event_identity identity = {request.eventid, request.timestamp};
  const xlog_error_block detail = find_error_detail(request.data);
  uint32_t code = 0;
  const int32_t result = xp11_request(&code, kRequestWord, &identity, 0, detail.error_id, detail.error_reason);
  if (result != 0) call.fail(static_cast<uint32_t>(result), code);
}

}  // namespace
}  // namespace plov::log

int32_t xlog_report_error(const xlog_log_request* request, uint32_t* comprc) {
  using namespace plov;
  frame::Call call("xlog_report_error", "XLOG   T: -> xlog_report_error", "XLOG   T: <- xlog_report_error", comprc);
  xlog_log_request copy;
  if (call.ok()) {
    if (frame::take_from_caller(&copy, request, sizeof copy, frame::Access::read))
      log::report(call, copy);
    else
      call.refuse(XLOG_RECORD_BAD_REQUEST);
  }
  return call.leave();
}
