// Changing a log that is in the file already, in place: its modify block, its type, its mark of deletion.
#include <errno.h>
#include <string.h>

#include <utility>

#include "frame/call.h"
#include "frame/caller_memory.h"
#include "frame/memory.h"
#include "log/operation.h"
#include "log/stream.h"
#include "xlog.h"

namespace plov::log {
namespace {

// What tells the three from each other beside what they do with the log.
struct Codes {
  uint16_t bad_link, bad_start;
  bool start_is_told;  // a bad chain has no reason code, but for this one's start; callers test for that 0
  uint16_t no_lock, not_open, file_header, header, write;
};
constexpr Codes kUpdateLog = {
    XLOG_UPDATE_LOG_BAD_LINK,     XLOG_UPDATE_LOG_BAD_START,  false,
    XLOG_UPDATE_LOG_NO_LOCK,      XLOG_UPDATE_LOG_NOT_OPEN,   XLOG_UPDATE_LOG_FILE_HEADER_ERROR,
    XLOG_UPDATE_LOG_HEADER_ERROR, XLOG_UPDATE_LOG_WRITE_ERROR};
constexpr Codes kUpdateType = {
    XLOG_UPDATE_TYPE_BAD_LINK,     XLOG_UPDATE_TYPE_BAD_START,  false,
    XLOG_UPDATE_TYPE_NO_LOCK,      XLOG_UPDATE_TYPE_NOT_OPEN,   XLOG_UPDATE_TYPE_FILE_HEADER_ERROR,
    XLOG_UPDATE_TYPE_HEADER_ERROR, XLOG_UPDATE_TYPE_WRITE_ERROR};
constexpr Codes kMark = {XLOG_MARK_BAD_LINK,     XLOG_MARK_BAD_START,  true,
                         XLOG_MARK_NO_LOCK,      XLOG_MARK_NOT_OPEN,   XLOG_MARK_FILE_HEADER_ERROR,
                         XLOG_MARK_HEADER_ERROR, XLOG_MARK_WRITE_ERROR};

bool same(const xlog_event_identity& identity, const xlog_log_info& info) {
  return memcmp(&identity.eventid, &info.eventid, sizeof info.eventid) == 0 &&
         memcmp(&identity.timestamp, &info.timestamp, sizeof info.timestamp) == 0;
}

// The common frame: the operation, and the walk along the class chain to the one log.
class Updater {
 public:
  Updater(frame::Call& call, const Codes& codes, const xlog_event_identity& identity, const char* session,
          uint32_t size)
      : call_(call), codes_(codes), identity_(identity), operation_(session, size) {}

  // Finds the log, reading `header_size` bytes of its header, and lets `change` loose on it.
  template <class Change>
  void run(uint32_t header_size, Change change) {
    if (begin() && find(header_size)) change(*this);
    xlog_err_interface& err = operation_.err;
    if (!call_.ok() && err.error_level != XLOG_LEVEL_NONE && call_.sysrc() != frame::kSystemFailure)
      call_.set_sysrc(static_cast<uint32_t>(xlog_error_handler(&err)));
    const int32_t closed = operation_.end();
    if (closed != 0) call_.fail(static_cast<uint32_t>(closed), err.error_id);
  }

  void overwrite_modify_block(const void* data, uint32_t size);
  void write_info() { write(offset_, &header_.log_info, sizeof header_.log_info); }
  xlog_log_info& info() { return header_.log_info; }

 private:
  bool fail(uint16_t error_id, uint32_t comprc, uint16_t level, uint32_t reason) {
    operation_.err.error_id = error_id;
    operation_.err.error_level = level;
    operation_.err.error_reason = reason;
    return call_.refuse(comprc);
  }

  // The first code of a pair is for an error that the stream reports, the second for a short transfer.
  bool unreadable(const Transfer& transfer, uint16_t pair) {
    const uint16_t code = transfer.stream_error ? pair : pair + 1;
    return fail(code, code, XLOG_LEVEL_DAMAGED, transfer.reason);
  }

  bool bad_link(uint32_t offset) { return fail(codes_.bad_link, 0, XLOG_LEVEL_DAMAGED, offset); }

  bool begin();
  bool find(uint32_t header_size);
  bool read_header(uint32_t offset, uint32_t header_size);
  void write(uint32_t offset, const void* bytes, uint32_t size);

  frame::Call& call_;
  const Codes& codes_;
  const xlog_event_identity& identity_;
  Operation operation_;
  xlog_file_header file_ = {};
  xlog_log_header header_ = {};
  uint32_t header_bytes_ = 0;  // of it, that the file had
  uint32_t offset_ = 0;        // of the log
};

bool Updater::begin() {
  uint32_t code = 0;
  if (!operation_.lock(&code)) return fail(codes_.no_lock, codes_.no_lock, XLOG_LEVEL_REPORT, code);
  const int32_t opened = operation_.open();
  if (opened != 0 || !operation_.err.file_handle) {
    operation_.err.error_level = XLOG_LEVEL_REPORT;
    return call_.fail(opened != 0 ? static_cast<uint32_t>(opened) : frame::kRefused, codes_.not_open);
  }
  const Transfer transfer = read_at(operation_.err.file_handle, 0, &file_, sizeof file_);
  return transfer.ok || unreadable(transfer, codes_.file_header);
}

// Readers of a whole header ask for its largest size, which the newest logs of a file need not have behind them.
bool Updater::read_header(uint32_t offset, uint32_t header_size) {
  const Transfer transfer = read_at(operation_.err.file_handle, offset, &header_, header_size);
  header_bytes_ = transfer.ok ? header_size : transfer.reason;
  const bool enough = transfer.ok || (!transfer.stream_error && transfer.reason >= sizeof header_.log_info);
  return enough || unreadable(transfer, codes_.header);
}

// Links fall strictly and end above the file header, so every walk ends and no write reaches the file header.
bool Updater::find(uint32_t header_size) {
  const uint8_t classes = identity_.eventid.classes;
  uint32_t offset = file_.class_last_log[classes];
  if (offset >= file_.file_size || (offset != 0 && offset < sizeof file_))
    return fail(codes_.bad_start, codes_.start_is_told ? codes_.bad_start : 0u, XLOG_LEVEL_DAMAGED, classes);
  while (offset != 0) {
    if (!read_header(offset, header_size)) return false;
    if (same(identity_, header_.log_info)) {
      offset_ = offset;
      return true;
    }
    const uint32_t link = header_.log_info.prev_class_log_offset;
    if (link >= offset || (link != 0 && link < sizeof file_)) return bad_link(offset);
    offset = link;
  }
  call_.set_comprc(XLOG_UPDATE_NOT_FOUND);
  return false;
}

void Updater::write(uint32_t offset, const void* bytes, uint32_t size) {
  FILE* const stream = operation_.err.file_handle;
  Transfer transfer = write_at(stream, offset, bytes, size);
  if (transfer.ok) transfer = flush(stream);
  if (transfer.ok) return;
  const uint16_t code = transfer.stream_error ? codes_.write : codes_.write + 1;
  const bool reported = transfer.stream_error && transfer.reason == 1;
  fail(code, code, reported ? XLOG_LEVEL_REPORT : XLOG_LEVEL_DAMAGED, transfer.reason);
}

// The size of the block is not looked at: callers of old write a record that is longer than the block and lies over the
// log behind it as well. Do not cut it; where the block itself would lie outside the file there is nothing to write to.
void Updater::overwrite_modify_block(const void* data, uint32_t size) {
  const uint32_t blocks = header_.log_info.num_blocks;
  const uint32_t header_size = sizeof header_.log_info + blocks * sizeof header_.block_info[0];
  if (header_size > header_bytes_) {
    unreadable({false, false, header_bytes_}, codes_.header);
    return;
  }
  uint64_t at = uint64_t{offset_} + header_size;
  for (uint32_t i = 0; i < blocks; ++i) {
    const xlog_block_info& block = header_.block_info[i];
    if (block.block_id != XLOG_MODIFY_BLOCK_ID) {
      at += block.block_size;
    } else if (at + block.block_size > file_.file_size) {
      bad_link(offset_);
      return;
    } else {
      write(static_cast<uint32_t>(at), data, size);
      return;
    }
  }
  call_.set_comprc(XLOG_UPDATE_NO_MODIFY_BLOCK);
}

// Our copy of the request: the caller's cannot change under us.
template <class Request>
bool take(frame::Call& call, Request* request, uint32_t code, Request* copy) {
  return call.ok() && (frame::take_from_caller(copy, request, sizeof *copy) || call.refuse(code));
}

bool take_data(frame::Call& call, const xlog_update_request& request, frame::Owned<uint8_t>* data) {
  const uint32_t size = request.data_size;
  if (size != 0 && !call.readable(request.data, size, XLOG_UPDATE_LOG_BAD_REQUEST)) return false;
  data->reset(static_cast<uint8_t*>(PLOV_MALLOC(size)));
  if (!*data) return call.refuse(XLOG_RECORD_NO_INPUT_MEMORY);
  return frame::copy_from_caller(data->get(), request.data, size) || call.refuse(XLOG_UPDATE_LOG_BAD_REQUEST);
}

// A refusal gives back the lock like every other end.
void refused() {
  Operation("", 0).end();
}

void update_log(frame::Call& call, xlog_update_request* caller) {
  xlog_update_request request;
  frame::Owned<uint8_t> data;
  if (!take(call, caller, XLOG_UPDATE_LOG_BAD_REQUEST, &request) || !take_data(call, request, &data)) return refused();
  Updater(call, kUpdateLog, request.identity, request.target_session, sizeof request.target_session)
      .run(XLOG_MAX_HEADER_SIZE, [&](Updater& log) { log.overwrite_modify_block(data.get(), request.data_size); });
}

void update_type(frame::Call& call, xlog_update_type_request* caller) {
  xlog_update_type_request request;
  if (!take(call, caller, XLOG_UPDATE_TYPE_BAD_REQUEST, &request)) return refused();
  Updater(call, kUpdateType, request.identity, request.target_session, sizeof request.target_session)
      .run(sizeof(xlog_log_info), [&](Updater& log) {
        log.info().eventid.log_type = request.new_type;
        log.write_info();
      });
}

void mark_for_delete(frame::Call& call, xlog_mark_request* caller) {
  xlog_mark_request request;
  if (!take(call, caller, XLOG_MARK_BAD_REQUEST, &request)) return refused();
  Updater(call, kMark, request.identity, request.target_session, sizeof request.target_session)
      .run(sizeof(xlog_log_info), [&](Updater& log) {
        log.info().log_flags = XLOG_LOG_DELETED;
        log.write_info();
      });
}

}  // namespace
}  // namespace plov::log

int32_t xlog_update_log(xlog_update_request* request, uint32_t* comprc) {
  plov::frame::Call call("xlog_update_log", "XLOG   T: -> xlog_update_log", "XLOG   T: <- xlog_update_log", comprc);
  plov::log::update_log(call, request);
  return call.leave();
}

int32_t xlog_update_type(xlog_update_type_request* request, uint32_t* comprc) {
  plov::frame::Call call("xlog_update_type", "XLOG   T: -> xlog_update_type", "XLOG   T: <- xlog_update_type", comprc);
  plov::log::update_type(call, request);
  return call.leave();
}

int32_t xlog_mark_log_for_delete(xlog_mark_request* request, uint32_t* comprc) {
  plov::frame::Call call("xlog_mark_log_for_delete", "XLOG   T: -> xlog_mark_log_for_delete",
                         "XLOG   T: <- xlog_mark_log_for_delete", comprc);
  plov::log::mark_for_delete(call, request);
  return call.leave();
}
