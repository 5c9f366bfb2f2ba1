// Where every failed log operation ends.
#include "log/error_handler.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>

#include "log/error_log.h"
#include "log/replace_damaged.h"
#include "xlog.h"
#include "xtr.h"

uint32_t xlog_error_pending;

namespace plov::log {
namespace {

// This thread's share of xlog_error_pending.
thread_local uint32_t own_handlers __attribute__((tls_model("initial-exec")));

// One handler is running. A failure inside it, its own recordings included, finds it counted and only reports.
class Running {
 public:
  Running() : nested_(__atomic_fetch_add(&xlog_error_pending, 1, __ATOMIC_ACQ_REL) != 0) { ++own_handlers; }
  ~Running() {
    if (own_handlers == 0) return;  // forgotten
    --own_handlers;
    __atomic_fetch_sub(&xlog_error_pending, 1, __ATOMIC_ACQ_REL);
  }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;
  bool nested() const { return nested_; }

 private:
  const bool nested_;
};

bool no_memory(uint16_t error_id) {
  return error_id == XLOG_ERR_CONFIG_MEMORY || error_id == XLOG_ERR_CONFIG_CLASS_MEMORY ||
         error_id == XLOG_ERR_CONFIG_TYPE_MEMORY || error_id == XLOG_ERR_ROOM_NO_MEMORY;
}

bool read_only(FILE* stream) {
  return (fcntl(fileno(stream), F_GETFL) & O_ACCMODE) == O_RDONLY;
}

// Not so for a file that is being made: it is under its interim name still, and whoever makes it removes it.
bool lies_at(FILE* stream, const char* path) {
  struct stat by_stream, by_path;
  return fstat(fileno(stream), &by_stream) == 0 && stat(path, &by_path) == 0 && by_stream.st_ino == by_path.st_ino &&
         by_stream.st_dev == by_path.st_dev;
}

// What the level comes to: only a file that is there and may be written can be replaced.
uint16_t level_of(const xlog_err_interface& err, const LogPath& path) {
  if (err.error_level == XLOG_LEVEL_REPORT) return XLOG_LEVEL_REPORT;
  if (err.error_level != XLOG_LEVEL_DAMAGED || no_memory(err.error_id) || !err.file_handle) return XLOG_LEVEL_RECORD;
  if (read_only(err.file_handle)) return XLOG_LEVEL_REPORT;
  return lies_at(err.file_handle, path.path) ? XLOG_LEVEL_DAMAGED : XLOG_LEVEL_RECORD;
}

int32_t handle(xlog_err_interface* err) {
  LogName name;
  parse_name(err->target_session, &name);
  xtr_trace("XLOG   F: err_interface->target_session = %s", err->target_session);
  if (name.form != LogName::Form::short_name) xtr_trace("XLOG   F: found !");
  if (name.form == LogName::Form::full_path) xtr_trace("XLOG   F: found /");
  xtr_trace("XLOG   F: log_file = %s", name.file);

  const Running running;
  if (running.nested()) err->error_level = XLOG_LEVEL_REPORT;
  if (err->error_level == XLOG_LEVEL_REPORT) return kHandled;
  LogPath path;
  locate(name, &path);
  const uint16_t level = level_of(*err, path);
  // Acted on once: whoever hands the same record in again only has it reported.
  err->error_level = XLOG_LEVEL_REPORT;
  if (level == XLOG_LEVEL_REPORT) return kHandled;
  return level == XLOG_LEVEL_DAMAGED ? replace_damaged(name, path, err) : record_error_log(*err);
}

}  // namespace

void forget_handlers_in_crash() {
  __atomic_fetch_sub(&xlog_error_pending, own_handlers, __ATOMIC_ACQ_REL);
  own_handlers = 0;
}

void forget_handlers_in_child() {
  __atomic_store_n(&xlog_error_pending, 0, __ATOMIC_RELEASE);
  own_handlers = 0;
}

}  // namespace plov::log

int32_t xlog_error_handler(xlog_err_interface* err_interface) {
  xtr_trace("XLOG   F: -> xlog_error_handler");
  xtr_trace("XLOG   F: -> error_id = %x, error_reason = %x", err_interface->error_id, err_interface->error_reason);
  const int32_t result = plov::log::handle(err_interface);
  xtr_trace("XLOG   F: <- xlog_error_handler");
  return result;
}
