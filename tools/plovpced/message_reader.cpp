#include "message_reader.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <utility>

namespace plov::pced {
namespace {

// The length that a message of this code has; 0 for a code that is no request.
uint32_t length_of(uint32_t code) {
  switch (code) {
    case SMSG_REGISTER_REQ:
      return sizeof(pce_wire_register);
    case SMSG_DEREGISTER_REQ:
    case kTableRequest:
      return sizeof(pce_wire_header);
    case SMSG_TAKE_LOG_REQ:
      return sizeof(pce_wire_take_log);
    default:
      return 0;
  }
}

// An area that came in part, or not at all, is as long as what came of it.
uint32_t cut(uint32_t length, size_t area, size_t filled) {
  return filled < area ? 0 : static_cast<uint32_t>(std::min<size_t>(length, filled - area));
}

}  // namespace

std::span<uint8_t> MessageReader::room() {
  if (state_ != State::reading) return {};
  uint8_t* const message = report_ ? reinterpret_cast<uint8_t*>(report_.get()) : reinterpret_cast<uint8_t*>(&small_);
  const uint32_t end = filled_ < sizeof small_.header ? sizeof small_.header : small_.header.length;
  return {message + filled_, message + end};
}

void MessageReader::advance(size_t count) {
  filled_ += static_cast<uint32_t>(count);
  if (filled_ < sizeof small_.header) return;
  const pce_wire_header& header = small_.header;
  if (header.length == 0 || header.length != length_of(header.code))
    state_ = State::garbage;
  else if (filled_ == header.length)
    state_ = State::complete;
  else if (header.code == SMSG_TAKE_LOG_REQ && !report_)
    state_ = State::needs_memory;
}

void MessageReader::give_memory(ReportPtr memory) {
  report_ = std::move(memory);
  report_->header = small_.header;
  state_ = State::reading;
}

void MessageReader::next() {
  small_ = {};
  report_.reset();
  filled_ = 0;
  state_ = State::reading;
}

ReportPtr MessageReader::take_report() {
  return std::move(report_);
}

ReportPtr MessageReader::take_cut_report() {
  using Report = pce_wire_take_log;
  if (!report_ || filled_ < offsetof(Report, stack_length)) return nullptr;
  Report& report = *report_;
  report.stack_length = cut(report.stack_length, offsetof(Report, stack), filled_);
  report.process_trace_length = cut(report.process_trace_length, offsetof(Report, process_trace), filled_);
  report.thread_trace_length = cut(report.thread_trace_length, offsetof(Report, thread_trace), filled_);
  report.backtrace_length = cut(report.backtrace_length, offsetof(Report, backtrace), filled_);
  return take_report();
}

}  // namespace plov::pced
