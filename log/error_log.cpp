#include "log/error_log.h"

#include <string.h>

#include "frame/recording.h"
#include "xtr.h"

namespace plov::log {
namespace {

constexpr uint8_t kClass = 0x0A;
constexpr uint8_t kType = 0xFF;
constexpr uint8_t kTraceBlock = 0x03;
constexpr uint32_t kTraceLines = 50, kTraceWidth = 80;
constexpr char kEventName[XLOG_NAME_SIZE] = "Log Manager";

}  // namespace

// On the stack whatever it needs: memory may be what failed.
int32_t record_error_log(const xlog_err_interface& err) {
  char trace[kTraceLines * kTraceWidth] = "";
  uint32_t fetched, fetch_code;
  xtr_fetch(trace, kTraceLines, kTraceWidth, &fetched, &fetch_code);
  const xlog_error_block error = {err.error_id, err.error_reason};
  xlog_data_node error_node = {sizeof error, XLOG_ERROR_BLOCK_ID, &error, nullptr};
  xlog_data_node trace_node = {sizeof trace, kTraceBlock, trace, &error_node};

  xlog_log_request request = {};
  request.flags = XLOG_PROBLEM_ANALYSIS_FLAG | XLOG_STANDARD_LOG_FLAG;
  request.eventid = {kClass, kType, err.error_id};
  memcpy(request.event_name, kEventName, sizeof kEventName);
  request.data = &trace_node;
  uint32_t code = 0;
  const frame::Recording recording;
  const int32_t result = xlog_record(&request, &code);
  return result != 0 ? result : kHandled;
}

}  // namespace plov::log
