#include "report_entry.h"

#include <algorithm>
#include <cstring>

namespace plov::pced {
namespace {

// As a process that logs its exception by itself makes the entry.
constexpr uint8_t kExceptionType = 0x3D;
constexpr char kExceptionName[] = "PCERROR";
constexpr uint8_t kStackBlock = 4;

// Trace areas come whole; what is written in them ends before the zeros behind.
uint32_t written(const char* area, uint32_t length, uint32_t size) {
  length = std::min(length, size);
  return length == 0 ? 0 : xlog_get_block_size(area, length);
}

}  // namespace

ReportEntry::ReportEntry(const pce_wire_take_log& report) {
  request_.type = kExceptionType;
  // Backtrace and trace are the dead process's; this process's would only mislead. What the whole machine did is added.
  request_.options = XLOG_PROBLEM_ANALYSIS_FLAG | XLOG_STANDARD_LOG_FLAG | XLOG_MICROCODE_NO_BACKTRACE |
                     XLOG_MICROCODE_NO_THREAD_TRACE | XLOG_MICROCODE_NO_PROCESS_TRACE;
  memcpy(request_.event_name, kExceptionName, sizeof kExceptionName - 1);
  request_.error_code = static_cast<uint16_t>(report.report_id);
  request_.extension = report.signal;
  request_.data = report.text;
  request_.data_size = std::min(+report.text_length, PCE_REPORT_TEXT_SIZE);

  add(kStackBlock, report.stack, std::min(+report.stack_length, PCE_STACK_AREA_SIZE));
  add(XLOG_BACKTRACE_BLOCK_ID, report.backtrace, std::min(+report.backtrace_length, PCE_BACKTRACE_SIZE));
  const uint32_t thread = written(report.thread_trace, report.thread_trace_length, PCE_TRACE_AREA_SIZE);
  const uint32_t process = written(report.process_trace, report.process_trace_length, PCE_TRACE_AREA_SIZE);
  // A process of one thread has both the same.
  if (thread != process || memcmp(report.thread_trace, report.process_trace, thread) != 0)
    add(XLOG_THREAD_TRACE_BLOCK_ID, report.thread_trace, thread);
  add(XLOG_PROCESS_TRACE_BLOCK_ID, report.process_trace, process);
}

void ReportEntry::add(uint8_t id, const void* area, uint32_t size) {
  if (size == 0) return;
  xlog_data_node& node = nodes_[count_];
  node = {size, id, area, nullptr};
  (count_ == 0 ? request_.chain : nodes_[count_ - 1].next) = &node;
  ++count_;
}

std::vector<std::string> report_lines(const pce_wire_take_log& report) {
  const char* const end = report.text + std::min(+report.text_length, PCE_REPORT_TEXT_SIZE);
  std::vector<std::string> lines;
  for (const char* line = report.text; line < end;) {
    lines.emplace_back(line, strnlen(line, static_cast<size_t>(end - line)));
    line += lines.back().size() + 1;
  }
  return lines;
}

}  // namespace plov::pced
