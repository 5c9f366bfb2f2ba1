#include "log/replace_damaged.h"

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/recording.h"
#include "log/copy_log.h"
#include "log/error_log.h"
#include "xtr.h"

namespace plov::log {
namespace {

constexpr char kSaved[] = "save";  // the short name of "wexosave.log"
constexpr uint16_t kPurgeUser = 145;
constexpr char kPurgeName[XLOG_NAME_SIZE] = "Log Purge";

// The lock of the "e4" file outlasts the stream: whoever waits for it must find the file gone, and not record in it
// between its copying and its removal.
class LockKept {
 public:
  LockKept(FILE* stream, int32_t kind) : file_(kind == XLOG_KIND_E4 ? fcntl(fileno(stream), F_DUPFD_CLOEXEC, 0) : -1) {}
  ~LockKept() {
    if (file_ >= 0) close(file_);
  }
  LockKept(const LockKept&) = delete;
  LockKept& operator=(const LockKept&) = delete;

 private:
  const int file_;
};

bool close_stream(xlog_err_interface* err) {
  uint32_t code = 0;
  const int32_t result = xdfc_close_file(err->file_handle, &code);
  err->file_handle = nullptr;
  return result == 0;
}

// An empty file tells nothing, and does not replace the evidence of an earlier failure.
bool nothing_to_save(const char* path, const char* saved) {
  struct stat status;
  return stat(path, &status) == 0 && status.st_size == 0 && lstat(saved, &status) == 0;
}

bool save(const char* path) {
  LogName name;
  LogPath saved;
  parse_name(kSaved, &name);
  locate(name, &saved);
  uint32_t code = saved.code;
  int32_t result = saved.sysrc;
  if (code == 0 && !nothing_to_save(path, saved.path)) result = copy_log(path, saved.path, &code);
  if (result != 0) xtr_trace("XLOG   F: %s cannot be saved, sysrc = %d, comprc = %d", path, result, code);
  return result == 0;
}

bool remove_file(const char* path) {
  uint32_t code;
  const ExplicitName name(path);
  return xdfc_delete_file(name.text, &code) == 0;
}

// To the log that was replaced when it has a reader of system events, else to the main log.
int32_t record_purge(int32_t kind) {
  xlog_system_event event = {};
  event.user = kPurgeUser;
  memcpy(event.event_name, kPurgeName, sizeof kPurgeName);
  if (kind == XLOG_KIND_E4) memcpy(event.target_session, "e4", sizeof "e4");
  uint32_t code = 0;
  const frame::Recording recording;
  return xlog_sysevent(&event, &code);
}

// Opening makes the file when the recordings have not. What failed first stays in the record.
void open_again(const LogName& name, xlog_err_interface* err) {
  LogPath path;
  locate(name, &path);
  if (path.code != 0) xtr_trace("XLOG   F: xdfc_quer_file_loc failed with %x %x", path.sysrc, path.code);
  const uint16_t error_id = err->error_id;
  const uint32_t reason = err->error_reason;
  err->error_level = XLOG_LEVEL_NONE;
  xlog_open_file(err);
  err->error_id = error_id;
  err->error_reason = reason;
  err->error_level = XLOG_LEVEL_REPORT;
}

}  // namespace

int32_t replace_damaged(const LogName& name, const LogPath& path, xlog_err_interface* err) {
  {
    const LockKept lock(err->file_handle, name.kind);
    // Never removed before its copy is complete. A handler is running, so this one only reports.
    if (!close_stream(err) || !save(path.path) || !remove_file(path.path)) return xlog_error_handler(err);
  }
  int32_t result = record_purge(name.kind);
  if (result != 0) return result;
  result = record_error_log(*err);
  if (result == kHandled) open_again(name, err);
  return result;
}

}  // namespace plov::log
