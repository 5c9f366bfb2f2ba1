// Recording an event: everything about it is decided first, then the log is written behind the newest one, and last of
// all the file header makes it visible. A process that dies in between leaves bytes beyond `file_size`, which are no
// log.
#include <errno.h>
#include <string.h>

#include "frame/call.h"
#include "frame/caller_memory.h"
#include "frame/memory.h"
#include "frame/probe.h"
#include "log/codec/codec.h"
#include "log/new_log.h"
#include "log/operation.h"
#include "log/stream.h"
#include "log/system_field.h"
#include "log/system_log.h"
#include "log/utc_offset.h"
#include "xlog.h"
#include "xtr.h"

uint16_t xlog_qrlse;

namespace plov::log {
namespace {

constexpr uint32_t kBufferSize = 0x1FE00;  // each of the two block buffers
constexpr uint32_t kDefaultModifySize = 10;

uint32_t capped(uint32_t size) {
  return size < XLOG_MAX_BLOCK_SIZE ? size : XLOG_MAX_BLOCK_SIZE;
}

class Recorder {
 public:
  Recorder(frame::Call& call, xlog_log_request* request, const xlog_log_request& copy)
      : call_(call),
        caller_(request),
        request_(copy),
        operation_(copy.target_session, sizeof copy.target_session),
        log_(copy) {}

  // One failing step ends the run; what it recorded goes through the error handler while the lock is still held. True
  // when the event is in the log, whatever closing the file says.
  bool run() {
    announce();
    const bool recorded = begin() && list_blocks() && settle_size() && write_log() && make_visible();
    if (!call_.ok() && operation_.err.error_level != XLOG_LEVEL_NONE && call_.sysrc() != frame::kSystemFailure)
      call_.fail(static_cast<uint32_t>(xlog_error_handler(&operation_.err)), 0);
    const int32_t closed = operation_.end();
    if (closed != 0) call_.fail(static_cast<uint32_t>(closed), operation_.err.error_id);
    return recorded;
  }

  const xlog_timestamp& timestamp() const { return timestamp_; }

 private:
  bool refuse(uint16_t code) {
    operation_.err.error_id = code;
    return call_.refuse(code);
  }

  bool fail(uint16_t error_id, uint32_t comprc, uint16_t level, uint32_t reason) {
    operation_.err.error_id = error_id;
    operation_.err.error_level = level;
    operation_.err.error_reason = reason;
    return call_.refuse(comprc);
  }

  bool out_of_memory(uint16_t code) { return fail(code, code, XLOG_LEVEL_RECORD, static_cast<uint32_t>(errno)); }

  // The first code of a pair is for an error that the stream reports, the second for a short transfer.
  bool written(Transfer transfer, uint16_t code) {
    if (transfer.ok) return true;
    if (!transfer.stream_error) return fail(code + 1, code + 1u, XLOG_LEVEL_DAMAGED, transfer.reason);
    return fail(code, code, transfer.reason == 1 ? XLOG_LEVEL_REPORT : XLOG_LEVEL_DAMAGED, transfer.reason);
  }

  void announce();
  bool begin();
  bool list_blocks();
  bool list_caller_blocks();
  bool make_room();
  bool settle_size();
  void trace_refused_size();
  bool write_log();
  bool write_caller_block(uint32_t entry, const xlog_data_node& node);
  bool write_encoded(uint32_t entry, uint32_t size, uint16_t write_code, uint16_t encode_error_id);
  bool make_visible();

  FILE* stream() { return operation_.err.file_handle; }
  bool wants(uint16_t flag) const { return (request_.flags & flag) != 0; }
  bool file_has(uint16_t flag) const { return (file_.file_flags & flag) != 0; }
  uint32_t standard_size() const {
    return file_has(XLOG_VERSION_CONTROL_FLAG) ? sizeof(xlog_standard_block) : sizeof(xlog_L00F02B00V01);
  }

  frame::Call& call_;
  xlog_log_request* caller_;
  const xlog_log_request& request_;
  Operation operation_;
  NewLog log_;
  xlog_file_header file_ = {};
  uint32_t offset_ = 0;  // of the new log

  xlog_data_node nodes_[XLOG_MAX_BLOCKS] = {};
  uint32_t node_count_ = 0;

  // The input buffer has the stored mark in front, so that a block that does not shrink is written as it lies.
  frame::Owned<uint8_t> input_, output_, modify_;
  uint32_t modify_size_ = 0;
  xlog_standard_block standard_ = {};
  xlog_timestamp timestamp_ = {};
};

void Recorder::announce() {
  char name[XLOG_NAME_SIZE + 1] = "";
  memcpy(name, request_.event_name, XLOG_NAME_SIZE);
  xtr_trace("XLOG   F: event name = %s", name);
  xtr_trace("XLOG   F: log class = 0x%x", request_.eventid.classes);
  xtr_trace("XLOG   F: log type = 0x%x", request_.eventid.log_type);
  xtr_trace("XLOG   F: log user = 0x%x", request_.eventid.user);
  xtr_trace("XLOG   F: modify_block_flag = 0x%x", wants(XLOG_MODIFY_BLOCK_FLAG));
  xtr_trace("XLOG   F: hardware_block_flag = 0x%x", wants(XLOG_HARDWARE_BLOCK_FLAG));
  xtr_trace("XLOG   F: standard_log_flag = 0x%x", wants(XLOG_STANDARD_LOG_FLAG));
  xtr_trace("XLOG   F: problem_analysis_flag = 0x%x", wants(XLOG_PROBLEM_ANALYSIS_FLAG));
  xtr_trace("XLOG   F: display_as_error_flag = 0x%x", wants(XLOG_DISPLAY_AS_ERROR_FLAG));
}

bool Recorder::begin() {
  uint32_t code = 0;
  if (!operation_.lock(&code)) return fail(XLOG_ERR_NO_LOCK, code, XLOG_LEVEL_REPORT, code);
  const int32_t opened = operation_.open();
  if (opened != 0) {
    operation_.err.error_level = XLOG_LEVEL_REPORT;
    return call_.fail(static_cast<uint32_t>(opened), operation_.err.error_id);
  }
  const Transfer header = read_at(stream(), 0, &file_, sizeof file_);
  // A log that the header's own place is given to would be lost, reported as recorded.
  if (header.ok && file_.file_size >= sizeof file_) return true;
  const uint16_t read_code = header.stream_error ? XLOG_RECORD_READ_ERROR : XLOG_RECORD_READ_SHORT;
  return fail(read_code, read_code, XLOG_LEVEL_DAMAGED, header.ok ? file_.file_size : header.reason);
}

bool Recorder::list_caller_blocks() {
  uint32_t scratch;
  for (const xlog_data_node* node = request_.data; node;) {
    xlog_data_node& copy = nodes_[node_count_];
    if (!frame::take_from_caller(&copy, node, sizeof copy)) return refuse(XLOG_RECORD_BAD_NODE);
    if (copy.data_size != 0 && frame::probe(copy.data_ptr, copy.data_size, frame::Access::read, &scratch) != 0)
      return refuse(XLOG_RECORD_BAD_DATA);
    // A full header is refused even when this was the last node.
    if (!log_.add(copy.block_id, capped(copy.data_size)) || log_.entries() == XLOG_MAX_BLOCKS)
      return refuse(XLOG_RECORD_TOO_MANY_BLOCKS);
    ++node_count_;
    node = copy.next;
  }
  return true;
}

// Whoever needs the field reads the variable, so it is asked for until it has a value.
void read_release_field() {
  if (xlog_qrlse != 0) return;
  uint32_t code;
  const int32_t result = read_system_field(kReleaseField, &xlog_qrlse, sizeof xlog_qrlse, &code);
  if (result != 0) xtr_trace("XLOG   F: sim read failed with %x %x", result, code);
}

bool Recorder::list_blocks() {
  if (file_has(XLOG_FILE_UTC_OFFSET)) {
    xtr_trace("XLOG   D: Setting up utc block");
    log_.add(XLOG_UTCOFFSET_BLOCK_ID, sizeof(xlog_utc_block));
  }
  if (!list_caller_blocks()) return false;
  read_release_field();

  input_.reset(static_cast<uint8_t*>(PLOV_MALLOC(kBufferSize)));
  if (!input_) return out_of_memory(XLOG_RECORD_NO_INPUT_MEMORY);
  output_.reset(static_cast<uint8_t*>(PLOV_MALLOC(kBufferSize)));
  if (!output_) return out_of_memory(XLOG_RECORD_NO_OUTPUT_MEMORY);

  xlog_get_standard(&standard_, &timestamp_);
  if (wants(XLOG_STANDARD_LOG_FLAG)) {
    if (file_has(XLOG_VERSION_CONTROL_FLAG)) {
      xtr_trace("XLOG   D: XLOG_VERSION_CONTROL_FLAG is set, block size = %d", standard_size());
    } else {
      xtr_trace("XLOG   D: XLOG_VERSION_CONTROL_FLAG is not set, block size = %d", standard_size());
      xtr_trace("XLOG   D: sizeof xlog_L00F02B00V01 is = %d", static_cast<int>(sizeof(xlog_L00F02B00V01)));
    }
    if (!log_.add(XLOG_STANDARD_BLOCK_ID, standard_size())) return refuse(XLOG_RECORD_TOO_MANY_BLOCKS);
  }
  if (file_has(XLOG_FILE_PRUNE_IN_PROGRESS) && !make_room()) return false;
  if (wants(XLOG_MODIFY_BLOCK_FLAG)) {
    modify_size_ = file_.modify_block_size == 0 ? kDefaultModifySize : capped(file_.modify_block_size);
    modify_.reset(static_cast<uint8_t*>(PLOV_MALLOC(modify_size_)));
    if (!modify_) return out_of_memory(XLOG_RECORD_NO_MODIFY_MEMORY);
    memset(modify_.get(), 0, modify_size_);
    if (!log_.add(XLOG_MODIFY_BLOCK_ID, modify_size_)) return refuse(XLOG_RECORD_TOO_MANY_BLOCKS);
  }
  log_.complete();
  return true;
}

void Recorder::trace_refused_size() {
  char name[XLOG_NAME_SIZE + 1] = "";
  memcpy(name, request_.event_name, XLOG_NAME_SIZE);
  xtr_trace("XLOG   F:    event name                         = %s", name);
  xtr_trace("XLOG   F:    log class                          = %d", request_.eventid.classes);
  xtr_trace("XLOG   F:    log type                           = %d", request_.eventid.log_type);
  xtr_trace("XLOG   F:    log user                           = %d", request_.eventid.user);
  xtr_trace("XLOG   F:    data_ptr->data_size                = %d", node_count_ > 0 ? nodes_[0].data_size : 0);
  xtr_trace("XLOG   F:    st_block_size                      = %d",
            wants(XLOG_STANDARD_LOG_FLAG) ? standard_size() : 0);
  xtr_trace("XLOG   F:    file_header.modify_block_size      = %d", file_.modify_block_size);
  xtr_trace("XLOG   F:    log_info->num_blocks               = %d", log_.entries());
  xtr_trace("XLOG   F:    file_header.max_single_log_size    = %d", file_.max_single_log_size);
  xtr_trace("XLOG   F:    log_info->total_log_size           = %d", log_.total());
}

// The stage may fail with result 0, its failure in the error record.
bool Recorder::make_room() {
  const xlog_err_interface& err = operation_.err;
  const int32_t result = xlog_compress_file(&file_, &operation_.err);
  if (result == 0 && err.error_level == XLOG_LEVEL_NONE && err.file_handle) return true;
  return call_.fail(result != 0 ? static_cast<uint32_t>(result) : frame::kRefused, err.error_id);
}

bool Recorder::settle_size() {
  if (log_.larger_than_one_may_be(file_)) {
    trace_refused_size();
    return fail(XLOG_RECORD_TOO_LARGE, XLOG_RECORD_TOO_LARGE, XLOG_LEVEL_RECORD, log_.total());
  }
  const uint32_t full_size = file_.file_size;
  if (!log_.fits(file_)) {
    if (!make_room()) return false;
    // The room that was made is all there is, and an event larger than that still goes in. Only when there is none, so
    // that the file would grow with every event, the event is refused.
    if (!log_.fits(file_) && file_.file_size >= full_size) return refuse(XLOG_RECORD_NO_ROOM);
  }
  if (!frame::copy_to_caller(&caller_->timestamp, &timestamp_, sizeof timestamp_))
    return refuse(XLOG_RECORD_BAD_REQUEST);
  offset_ = file_.file_size;
  log_.link(file_, timestamp_);
  return true;
}

// Encodes the `size` bytes of the input buffer and writes the shorter of the two forms.
bool Recorder::write_encoded(uint32_t entry, uint32_t size, uint16_t write_code, uint16_t encode_error_id) {
  // The encoder leaves these header bytes as it finds them; old memory must not reach the disk.
  memset(output_.get() + 4, 0, 8);
  xlog_mem_block block = {input_.get() + 1, size, output_.get(), kBufferSize};
  const uint32_t code = codec::encode(block);
  if (code != 0) return fail(encode_error_id, code, XLOG_LEVEL_RECORD, code);
  if (block.output_length < size) {
    log_.stored(entry, block.output_length);
    return written(write_here(stream(), output_.get(), block.output_length), write_code);
  }
  input_.get()[0] = XLOG_STORED_MARK;
  log_.stored(entry, size + 1);
  return written(write_here(stream(), input_.get(), size + 1), write_code);
}

bool Recorder::write_caller_block(uint32_t entry, const xlog_data_node& node) {
  const uint32_t size = capped(node.data_size);
  if (!frame::copy_from_caller(input_.get() + 1, node.data_ptr, size)) return refuse(XLOG_RECORD_BAD_DATA);
  if (node.block_id == XLOG_MODIFY_BLOCK_ID)
    return written(write_here(stream(), input_.get() + 1, size), XLOG_RECORD_BLOCK_ERROR);
  return write_encoded(entry, size, XLOG_RECORD_BLOCK_ERROR, XLOG_RECORD_ENCODE_FAILED);
}

bool Recorder::write_log() {
  if (!written(write_at(stream(), offset_, &log_.header(), log_.header_size()), XLOG_RECORD_HEADER_ERROR)) return false;
  uint32_t entry = 0;
  if (file_has(XLOG_FILE_UTC_OFFSET)) {
    xtr_trace("XLOG   F: Logging UTC offset block");
    const xlog_utc_block utc = utc_block(timestamp_.seconds);
    if (!written(write_here(stream(), &utc, sizeof utc), XLOG_RECORD_OWN_BLOCK_ERROR)) return false;
    ++entry;
  }
  for (uint32_t i = 0; i < node_count_; ++i, ++entry)
    if (!write_caller_block(entry, nodes_[i])) return false;
  if (wants(XLOG_STANDARD_LOG_FLAG)) {
    const void* block = file_has(XLOG_VERSION_CONTROL_FLAG) ? static_cast<const void*>(&standard_) : &standard_.process;
    memcpy(input_.get() + 1, block, standard_size());
    if (!write_encoded(entry, standard_size(), XLOG_RECORD_OWN_BLOCK_ERROR, XLOG_RECORD_STANDARD_ENCODE_FAILED))
      return false;
    ++entry;
  }
  if (wants(XLOG_MODIFY_BLOCK_FLAG) &&
      !written(write_here(stream(), modify_.get(), modify_size_), XLOG_RECORD_MODIFY_ERROR))
    return false;
  // Again with the final sizes, and out of the buffer: the file header must never name a log that is not there.
  return written(write_at(stream(), offset_, &log_.header(), log_.header_size()), XLOG_RECORD_HEADER_ERROR) &&
         written(flush(stream()), XLOG_RECORD_HEADER_ERROR);
}

bool Recorder::make_visible() {
  make_newest(&file_, log_, offset_);
  return written(write_at(stream(), 0, &file_, sizeof file_), XLOG_RECORD_FILE_HEADER_ERROR) &&
         written(flush(stream()), XLOG_RECORD_FILE_HEADER_ERROR);
}

// Our copy of the request: the caller's cannot change under us. Callers look for two classes under their stored ones,
// in their own request too.
bool take_request(xlog_log_request* request, xlog_log_request* copy) {
  if (!frame::take_from_caller(copy, request, sizeof *copy)) return false;
  const uint8_t asked = copy->eventid.classes;
  if (asked != 0xAA && asked != 0x0A) return true;
  copy->eventid.classes = asked == 0xAA ? 0xE5 : 0xE4;
  return frame::copy_to_caller(&request->eventid.classes, &copy->eventid.classes, sizeof asked);
}

void record(frame::Call& call, xlog_log_request* request) {
  xlog_log_request copy;
  if (call.ok() && !take_request(request, &copy)) call.refuse(XLOG_RECORD_BAD_REQUEST);
  if (!call.ok()) {
    Operation("", 0).end();  // a refusal gives back the lock like every other end of a record
    return;
  }
  if (copy.eventid.classes == 0 && system_log_wanted()) copy_to_system_log(copy);
  {
    Recorder recorder(call, request, copy);
    if (!recorder.run()) return;
    copy.timestamp = recorder.timestamp();
  }
  // Without the lock, the guard and the buffers: it is Java that is called.
  uint32_t ignored;
  if (copy.flags & XLOG_PROBLEM_ANALYSIS_FLAG) xlog_report_error(&copy, &ignored);
}

}  // namespace
}  // namespace plov::log

int32_t xlog_record(xlog_log_request* request, uint32_t* comprc) {
  plov::frame::Call call("xlog_record", "XLOG   T: -> xlog_record", "XLOG   T: <- xlog_record", comprc);
  plov::log::record(call, request);
  if (call.sysrc() == plov::frame::kUnusableComprc)
    xtr_trace("XLOG   F:    sysrc = %d", call.sysrc());
  else
    xtr_trace("XLOG   F:    sysrc = %d, comp_rc = 0x%X", call.sysrc(), call.comprc());
  return call.leave();
}
