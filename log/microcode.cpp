// The microcode log: what a component leaves of an internal error of its own code.
#include <ctype.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <string_view>

#include "frame/caller_memory.h"
#include "frame/deferred.h"
#include "frame/memory.h"
#include "frame/probe.h"
#include "log/system_field.h"
#include "xbt.h"
#include "xlog.h"
#include "xtr.h"

namespace plov::log {
namespace {

constexpr uint8_t kClass = 10;
constexpr uint32_t kTraceSize = 40960;
constexpr uint32_t kFramesOfOurs = 3;
constexpr uint32_t kTraceOptions =
    XLOG_MICROCODE_NO_THREAD_TRACE | XLOG_MICROCODE_NO_PROCESS_TRACE | XLOG_MICROCODE_NO_TRACE;

// A failure of this function's own, recorded as one of any other component.
void record_own_failure(uint16_t error_code, uint32_t extension, uint32_t options, const void* data) {
  xlog_microcode_request own = {};
  own.type = 0xFF;
  own.user = 0xFFFF;
  own.options = options;
  memcpy(own.event_name, "LIC log Err", sizeof "LIC log Err");
  own.error_code = error_code;
  own.extension = extension;
  own.data = data;
  own.data_size = data ? sizeof own : 0;
  uint32_t code;
  xlog_microcode_log(&own, &code);
}

// Trace text, or nothing when there is no memory for it.
struct TraceBlock {
  frame::Owned<char> text;
  uint32_t size = 0;

  void take(int32_t (*fetch)(char*, uint32_t, uint32_t, uint32_t*, uint32_t*)) {
    text.reset(static_cast<char*>(PLOV_MALLOC(kTraceSize)));
    if (!text) return;
    memset(text.get(), 0, kTraceSize);
    uint32_t count, code;
    fetch(text.get(), kTraceSize, 1, &count, &code);
    size = xlog_get_block_size(text.get(), kTraceSize);
  }
  bool there() const { return static_cast<bool>(text); }
  bool equals(const TraceBlock& other) const {
    return there() && other.there() && size == other.size && memcmp(text.get(), other.text.get(), size) == 0;
  }
};

// A look at the caller's chain. A node that is unusable ends it here and is refused by the recorder.
template <class Visit>
void each_node(const xlog_data_node* next, Visit visit) {
  xlog_data_node node;
  for (uint32_t i = 0; next && i < XLOG_MAX_BLOCKS; ++i, next = node.next) {
    if (!frame::take_from_caller(&node, next, sizeof node)) return;
    visit(node);
  }
}

// Names of files that the entry's reader should collect. They are only traced.
void trace_file_list(const xlog_data_node& node) {
  xtr_trace("XLOGMC F: got DF block, data_size = %d", node.data_size);
  const uint32_t size = node.data_size < XLOG_MAX_BLOCK_SIZE ? node.data_size : XLOG_MAX_BLOCK_SIZE;
  const frame::Owned<char> list(static_cast<char*>(PLOV_MALLOC(size_t{size} + 1)));
  if (!list || !frame::copy_from_caller(list.get(), node.data_ptr, size)) return;
  for (uint32_t i = 0; i < size; ++i)
    if (list.get()[i] == '\0') list.get()[i] = ' ';
  list.get()[size] = '\0';
  char* rest = nullptr;
  for (const char* name = strtok_r(list.get(), " ,;\n\r\f", &rest); name; name = strtok_r(nullptr, " ,;\n\r\f", &rest))
    xtr_trace("XLOGMC F: copying file name %s", name);
}

class Entry {
 public:
  Entry(const xlog_microcode_request& request, uint8_t event_class) : request_(request) {
    log_.flags = static_cast<uint16_t>(request.options) | XLOG_STANDARD_LOG_FLAG;
    log_.eventid = {event_class, request.type, request.user};
    memcpy(log_.event_name, request.event_name, sizeof log_.event_name);
    memcpy(log_.target_session, request.target_session, sizeof request.target_session);
    log_.data = request.chain;
  }

  // The first failure of the caller's data, or 0; the entry is made without them then.
  uint32_t add_error_and_data() {
    error_ = {request_.error_code, request_.extension};
    put_in_front(XLOG_ERROR_BLOCK_ID, &error_, sizeof error_);
    if (request_.data_size == 0) return 0;
    uint32_t code;
    if (frame::probe(request_.data, request_.data_size, frame::Access::read, &code) != 0) return code;
    put_in_front(XLOG_LOG_INFO_BLOCK_ID, request_.data, request_.data_size);
    return 0;
  }

  // `text` becomes this entry's.
  void add_backtrace(char* text) {
    backtrace_.reset(text);
    if (!text) return;
    bool used[256] = {};
    each_node(request_.chain, [&](const xlog_data_node& node) { used[node.block_id] = true; });
    uint8_t id = XLOG_BACKTRACE_BLOCK_ID;
    while (id <= XLOG_LAST_BACKTRACE_BLOCK_ID && used[id]) ++id;
    if (id > XLOG_LAST_BACKTRACE_BLOCK_ID) id = XLOG_BACKTRACE_BLOCK_ID;
    put_in_front(id, text, static_cast<uint32_t>(strlen(text)));
  }

  void add_traces() {
    if (!(request_.options & XLOG_MICROCODE_NO_THREAD_TRACE)) {
      thread_.take(xtr_fetch_tid);
      if (!thread_.there()) xtr_trace("XLOGMC F: malloc failed for ED block buffer, block will be skipped");
    }
    if (!(request_.options & XLOG_MICROCODE_NO_PROCESS_TRACE)) {
      process_.take(xtr_fetch_pid);
      if (!process_.there()) xtr_trace("XLOGMC F: malloc failed for EE block buffer, block will be skipped");
    }
    if (!(request_.options & XLOG_MICROCODE_NO_TRACE)) {
      facility_.take(xtr_fetch);
      if (!facility_.there()) xtr_trace("XLOGMC F: malloc failed for EF block buffer, block will be skipped");
    }
    if (thread_.there() && !process_.equals(thread_))
      put_in_front(XLOG_THREAD_TRACE_BLOCK_ID, thread_.text.get(), thread_.size);
    // A whole trace that equals the thread's takes away the process's: readers of these entries count on it.
    const bool without_process = facility_.equals(thread_) || facility_.equals(process_);
    if (process_.there() && !without_process)
      put_in_front(XLOG_PROCESS_TRACE_BLOCK_ID, process_.text.get(), process_.size);
    if (facility_.there()) put_in_front(XLOG_TRACE_BLOCK_ID, facility_.text.get(), facility_.size);
  }

  int32_t record(uint32_t* comprc) { return xlog_record(&log_, comprc); }
  const xlog_timestamp& timestamp() const { return log_.timestamp; }

  void trace_reference_code() const {
    char code[9], extension[9];
    snprintf(code, sizeof code, "%02X%02x%04x", log_.eventid.classes, request_.type, request_.error_code);
    snprintf(extension, sizeof extension, "%x", request_.extension);
    xtr_trace("XLOGMC F: Refcode = %s, Extension = %s", code, extension);
  }

 private:
  void put_in_front(uint8_t id, const void* data, uint32_t size) {
    nodes_[count_] = {size, id, data, log_.data};
    log_.data = &nodes_[count_++];
  }

  const xlog_microcode_request& request_;
  xlog_log_request log_ = {};
  xlog_data_node nodes_[6] = {};
  uint32_t count_ = 0;
  xlog_error_block error_ = {};
  frame::Owned<char> backtrace_;
  TraceBlock thread_, process_, facility_;
};

void restart_now(const frame::Deferred& request) {
  uint32_t ignored;
  xbt_restart(&ignored, "LOGGER", "A restart has been requested due to a nonrecoverable error",
              static_cast<uint32_t>(request.values[0]));
}

// Java cannot be asked while the thread holds a lock: the restart waits for its release. One that cannot wait is not
// lost for that.
void ask_for_restart(int32_t kind) {
  xtr_trace("XLOGMC F: should be calling send_ui_msg");
  const frame::Deferred request = {restart_now, {kind}};
  if (!frame::record_or_defer(request)) restart_now(request);
}

bool suppressed(uint32_t options) {
  uint32_t value = 0, code;
  return !(options & XLOG_MICROCODE_ALWAYS) && read_system_field(kMicrocodeField, &value, sizeof value, &code) == 0 &&
         value != 0;
}

uint8_t stored_class(uint8_t event_class) {
  return event_class == 0xAA ? 0xE5 : event_class == kClass ? 0xE4 : event_class;
}

// What is wrong with the caller's pointers becomes an entry of its own. 0: nothing.
int32_t refuse(bool comprc_usable, uint32_t comprc_fault, bool request_usable, uint32_t request_fault,
               const xlog_microcode_request& request, uint32_t* comprc) {
  if (!comprc_usable) {
    record_own_failure(XLOG_MICROCODE_BAD_COMPRC, comprc_fault, XLOG_PROBLEM_ANALYSIS_FLAG,
                       request_usable ? &request : nullptr);
    return 1;
  }
  if (request_usable) return 0;
  *comprc = XLOG_MICROCODE_BAD_REQUEST;
  record_own_failure(XLOG_MICROCODE_BAD_REQUEST, request_fault, XLOG_PROBLEM_ANALYSIS_FLAG, nullptr);
  return 8;
}

}  // namespace
}  // namespace plov::log

// The backtrace is taken here: its skipped frames are this one, its caller of this file, and the library's own.
int32_t xlog_microcode_log2(xlog_microcode_request* request, uint8_t event_class, uint32_t* comprc) {
  using namespace plov;
  const int saved_errno = errno;
  xtr_trace("XLOG   T -> xlog_microcode_log2");
  uint32_t comprc_fault = 0, request_fault = 0;
  const bool comprc_usable = frame::probe(comprc, sizeof *comprc, frame::Access::write, &comprc_fault) == 0;
  xlog_microcode_request copy = {};
  const bool request_usable = frame::probe(request, sizeof *request, frame::Access::write, &request_fault) == 0 &&
                              frame::copy_from_caller(&copy, request, sizeof copy);
  if (request_usable && log::suppressed(copy.options)) {
    if (comprc_usable) *comprc = 0;
    xtr_trace("XLOG   T <- xlog_microcode_log2 (simcheck)");
    errno = saved_errno;
    return 0;
  }
  int32_t sysrc = log::refuse(comprc_usable, comprc_fault, request_usable, request_fault, copy, comprc);
  if (sysrc == 0) {
    // The caller's own copy of these bits is gone afterwards: callers set them anew for each entry.
    const uint32_t kept = copy.options & ~log::kTraceOptions;
    frame::copy_to_caller(&request->options, &kept, sizeof kept);

    bool listed = false;
    log::each_node(copy.chain, [&](const xlog_data_node& node) {
      if (node.block_id == XLOG_FILE_LIST_BLOCK_ID && !listed) log::trace_file_list(node);
      listed |= node.block_id == XLOG_FILE_LIST_BLOCK_ID;
    });
    log::Entry entry(copy, log::stored_class(event_class));
    if (const uint32_t fault = entry.add_error_and_data(); fault != 0) {
      log::record_own_failure(XLOG_MICROCODE_BAD_DATA, fault, 0, &copy);
      *comprc = XLOG_MICROCODE_BAD_REQUEST;
    }
    if (!(copy.options & XLOG_MICROCODE_NO_BACKTRACE)) {
      char* text = nullptr;
      uint32_t code;
      xlog_get_backtrace(&text, log::kFramesOfOurs, &code);
      entry.add_backtrace(text);
    }
    entry.add_traces();
    uint32_t code = 0;
    sysrc = entry.record(&code);
    *comprc = code;
    frame::copy_to_caller(&request->timestamp, &entry.timestamp(), sizeof request->timestamp);
    entry.trace_reference_code();
    if (copy.options & XLOG_MICROCODE_RESTART_2) log::ask_for_restart(2);
    if (copy.options & XLOG_MICROCODE_RESTART_1) log::ask_for_restart(1);
  }
  xtr_trace("XLOG   T <- xlog_microcode_log2");
  errno = saved_errno;
  return sysrc;
}

int32_t xlog_microcode_log(xlog_microcode_request* request, uint32_t* comprc) {
  xtr_trace("XLOG   T -> xlog_microcode_log");
  const int32_t sysrc = xlog_microcode_log2(request, plov::log::kClass, comprc);
  xtr_trace("XLOG   T <- xlog_microcode_log");
  return sysrc;
}

uint32_t xlog_get_block_size(const char* buffer, uint32_t size) {
  while (size > 1 && buffer[size - 1] == '\0') --size;
  return size > 0 ? size : 1;
}
