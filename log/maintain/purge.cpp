// Purging: whole classes of logs, or a log file with all of its copies.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "frame/call.h"
#include "frame/caller_memory.h"
#include "log/configuration.h"
#include "log/maintain/failed.h"
#include "log/maintain/loaded_file.h"
#include "log/maintain/slot.h"
#include "log/names.h"
#include "log/operation.h"
#include "xdfc.h"
#include "xlog.h"
#include "xtr.h"

namespace plov::log {
namespace {

constexpr uint16_t kEventUser = 145;
constexpr char kEventName[XLOG_NAME_SIZE] = "LOGPURGE";

class Purge {
 public:
  Purge(frame::Call& call, const xlog_purge_block& request)
      : call_(call), request_(request), operation_(request.target_session, sizeof request.target_session) {}

  // False after a failure. The lock is free again in both cases.
  bool run() {
    if (begin()) {
      if (request_.count == XLOG_PURGE_FILE)
        remove_files();
      else
        purge_classes();
    }
    if (!call_.ok() && err().error_level != XLOG_LEVEL_NONE && call_.sysrc() != frame::kSystemFailure)
      call_.fail(static_cast<uint32_t>(xlog_error_handler(&err())), 0);
    const int32_t closed = operation_.end();
    if (closed != 0) call_.fail(static_cast<uint32_t>(closed), err().error_id);
    return call_.ok();
  }

  // The name that the log was purged by; empty unless its file went.
  const char* removed() const { return removed_; }

 private:
  xlog_err_interface& err() { return operation_.err; }

  bool fail(uint16_t code, uint32_t reason, uint16_t level) {
    failed(&err(), code, reason, level);
    return call_.refuse(code);
  }

  using Check = bool (*)(xlog_err_interface*, const Transfer&, uint16_t, uint16_t);
  bool done(Check check, const Transfer& transfer, uint16_t error_code) {
    return check(&err(), transfer, error_code, static_cast<uint16_t>(error_code + 1)) || call_.refuse(err().error_id);
  }

  bool begin() {
    uint32_t code = 0;
    return operation_.lock(&code) || fail(XLOG_PURGE_NO_LOCK, code, XLOG_LEVEL_REPORT);
  }

  bool purge_classes() {
    const int32_t opened = operation_.open();
    if (opened != 0) {
      err().error_level = XLOG_LEVEL_REPORT;
      return call_.fail(static_cast<uint32_t>(opened), err().error_id);
    }
    xlog_file_header header;
    if (!done(was_read, read_at(err().file_handle, 0, &header, sizeof header), XLOG_PURGE_FILE_HEADER_ERROR) ||
        !mark(header))
      return false;
    // Without amounts nothing else is marked: this closes the gaps.
    xlog_stage_result nothing = {};
    const int32_t result = xlog_delete_logs(&err(), &header, &nothing);
    if (result != 0) return call_.fail(static_cast<uint32_t>(result), err().error_id);
    return err().error_level == XLOG_LEVEL_NONE || call_.refuse(err().error_id);
  }

  bool mark(const xlog_file_header& header) {
    LoadedFile file;
    if (!file.load(err().file_handle, header.file_size, 0))
      return fail(XLOG_ERR_ROOM_NO_MEMORY, static_cast<uint32_t>(errno), XLOG_LEVEL_RECORD);
    if (file.read_error() != 0)
      return fail(XLOG_PURGE_HEADER_ERROR, static_cast<uint32_t>(file.read_error()), XLOG_LEVEL_DAMAGED);
    for (int32_t i = 0; i < request_.count; ++i)
      if (!mark_class(file, header, request_.classes[i])) return false;
    bool marked;
    return done(was_written, file.write_flags(err().file_handle, &marked), XLOG_PURGE_MARK_ERROR);
  }

  // A link that leads out of the class leads into other logs, or into their data: nothing may be marked there.
  bool mark_class(LoadedFile& file, const xlog_file_header& header, uint8_t event_class) {
    uint32_t limit = header.file_size;
    for (uint32_t offset = header.class_last_log[event_class]; offset != 0;) {
      xlog_log_info info;
      if (offset >= limit) return fail(XLOG_PURGE_BAD_LINK, offset, XLOG_LEVEL_DAMAGED);
      if (!file.header(offset, &info)) return fail(XLOG_PURGE_HEADER_SHORT, offset, XLOG_LEVEL_DAMAGED);
      if (info.eventid.classes != event_class) return fail(XLOG_PURGE_BAD_LINK, offset, XLOG_LEVEL_DAMAGED);
      file.set_flags(offset, XLOG_LOG_DELETED);
      limit = offset;
      offset = info.prev_class_log_offset;
    }
    return true;
  }

  // The copies go whatever log is purged: they may hold its events too.
  bool remove_files() {
    char path[sizeof(LogPath::path) + 1];
    name_file(path, sizeof path);
    uint32_t ignored;
    xdfc_delete_file("wexosave.log", &ignored);
    xlog_configuration configuration;
    const int32_t read = read_configuration(&err(), false, &configuration);
    if (read != 0) return call_.fail(static_cast<uint32_t>(read), err().error_id);
    int count = configuration.compressed_copies;
    xtr_trace("XLOG   D: file count = %d", count);
    if (count < 1) count = 1;
    if (count > kMaxSlots) count = kMaxSlots;
    for (int i = 0; i < count; ++i) {
      char copy[XLOG_COPY_NAME_SIZE];
      snprintf(copy, sizeof copy, "wexocom%c.log", kSlotDigits[i]);
      xtr_trace("XLOG   D: comp file [%d] is %s", i, copy);
      xdfc_delete_file(copy, &ignored);
    }
    xdfc_delete_file("wexocomp.log", &ignored);
    uint32_t detail = 0;
    if (xdfc_delete_file(path, &detail) == 0 || detail == ENOENT) return true;
    return fail(XLOG_PURGE_DELETE_FAILED, detail, XLOG_LEVEL_RECORD);
  }

  // A name that is too long for a log is no log's: it is not cut, or another log would go. `path` is what the file
  // services are to remove: a bare "!name" lies where the path table puts "!name".
  void name_file(char* path, size_t size) {
    const char* const session = err().target_session;
    LogName name;
    parse_name(session, &name);
    if (name.too_long)
      snprintf(removed_, sizeof removed_, "wexo%s.log", session);
    else
      snprintf(removed_, sizeof removed_, "%s", name.opened);
    LogPath located;
    if (name.form == LogName::Form::bare_file && (locate(name, &located), located.path[0] != '\0'))
      snprintf(path, size, "!%s", located.path);
    else
      snprintf(path, size, "%s", removed_);
  }

  frame::Call& call_;
  const xlog_purge_block& request_;
  Operation operation_;
  char removed_[sizeof(xlog_purge_block::target_session) + 16] = "";
};

// Into the main log, which the message must not depend on: the purged one may be gone.
void record_purge(frame::Call& call, const char* removed) {
  xlog_variable name = {XLOG_VARIABLE_TEXT, static_cast<uint16_t>(strlen(removed)), removed, nullptr};
  xlog_system_event event = {};
  event.user = kEventUser;
  memcpy(event.event_name, kEventName, sizeof kEventName);
  if (removed[0] != '\0') event.variables = &name;
  uint32_t code = 0;
  const int32_t recorded = xlog_sysevent(&event, &code);
  if (recorded != 0) call.fail(static_cast<uint32_t>(recorded), code);
}

void purge(frame::Call& call, const xlog_purge_block* caller) {
  xlog_purge_block request;
  if (!call.readable(caller, sizeof request, XLOG_PURGE_BAD_CLASSES)) return;
  if (!frame::copy_from_caller(&request, caller, sizeof request)) {
    call.refuse(XLOG_PURGE_BAD_CLASSES);
    return;
  }
  if (request.count < XLOG_PURGE_FILE || request.count > static_cast<int32_t>(sizeof request.classes)) {
    call.refuse(XLOG_PURGE_BAD_COUNT);
    return;
  }
  Purge purge(call, request);
  if (purge.run()) record_purge(call, purge.removed());
}

}  // namespace
}  // namespace plov::log

int32_t xlog_log_purge(const xlog_purge_block* block, uint32_t* comprc) {
  plov::frame::Call call("xlog_log_purge", "XLOG   T: -> xlog_log_purge", "XLOG   T: <- xlog_log_purge", comprc);
  plov::log::purge(call, block);
  return call.leave();
}
