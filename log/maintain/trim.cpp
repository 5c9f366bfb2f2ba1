#include "log/maintain/trim.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "frame/call.h"
#include "log/interim.h"
#include "log/stream.h"
#include "xdfc.h"
#include "xlog.h"
#include "xtr.h"

namespace plov::log {
namespace {

constexpr char kMainLog[] = "wexolog.log";
constexpr char kAltLog[] = "wexocalt.log";
constexpr char kTemporary[] = "wexotsd.log";
constexpr uint32_t kReplace = XDFC_DE_CREAT | XDFC_E_REPLACE;

constexpr TrimResult kTrimmed = {0, 0, nullptr};

// Only the main log has writers that wait for the log lock.
int32_t copy_source(const char* source, const char* target, uint32_t* code) {
  if (source != kMainLog) return xdfc_file_copy(source, target, kReplace, code);
  const int32_t locked = xlog_access_sem(XLOG_SEM_LOCK, code);
  if (locked != 0) return locked;
  const int32_t copied = xdfc_file_copy(source, target, kReplace, code);
  uint32_t ignored;
  xlog_access_sem(XLOG_SEM_UNLOCK, &ignored);
  return copied;
}

// What a log holds is nobody else's to read: a destination that is not there yet is private from its first byte on. One
// that is there is the caller's and keeps its mode.
int32_t copy_out(const char* source, const char* destination, uint32_t* code) {
  LogName name;
  LogPath path;
  const bool explicit_path = destination[0] == '!';
  name.form = explicit_path ? LogName::Form::full_path : LogName::Form::bare_file;
  name.looked_up = destination;
  name.file = destination + (explicit_path ? 1 : 0);
  locate(name, &path);
  const int fd = open(path.path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd >= 0) close(fd);
  const int32_t copied = copy_source(source, destination, code);
  if (copied != 0 && fd >= 0) unlink(path.path);
  return copied;
}

class TemporaryCopy {
 public:
  TemporaryCopy() { memcpy(err_.target_session, "tsd", sizeof "tsd"); }
  ~TemporaryCopy() { close(); }
  TemporaryCopy(const TemporaryCopy&) = delete;
  TemporaryCopy& operator=(const TemporaryCopy&) = delete;

  TrimResult trim(const char* source, uint32_t size, const char* destination) {
    uint32_t code = make_private();
    if (code != 0) return not_copied(2, code);
    int32_t sysrc = copy_source(source, kTemporary, &code);
    if (sysrc == 0) sysrc = xdfc_search_file_open2(kTemporary, "r+", &err_.file_handle, &code);
    if (sysrc != 0 || !err_.file_handle) return not_copied(sysrc, code);

    xlog_file_header header;
    const Transfer read = read_at(err_.file_handle, 0, &header, sizeof header);
    if (!read.ok && read.stream_error) return not_copied(2, static_cast<uint32_t>(errno));
    if (!read.ok) {
      xtr_trace("XLOGTRMT: Send bad rc back to caller - Corrupted log header");
      return {1, read.reason, "Corrupted log header data"};
    }
    // A file that is said to hold less than would have to go is left as it is, and so is the copy of it.
    const uint32_t excess = size - XLOG_TRIM_SIZE;
    if (excess >= header.file_size) return kTrimmed;
    sysrc = delete_oldest(&header, excess);
    if (sysrc != 0) {
      remove();
      xtr_trace("XLOGTRMT: Send bad rc back to caller - pruning error");
      return {sysrc, err_.error_id, "Error reducing log file: xlog_delete_logs()"};
    }
    sysrc = copy_out(kTemporary, destination, &code);
    remove();
    if (sysrc != 0) {
      xtr_trace("XLOGTRMT: Send bad rc back to caller - File copy error");
      return {sysrc, code, "Error copying log file to destination"};
    }
    xtr_trace("XLOGTRMF: Good file..reduction successful");
    return kTrimmed;
  }

 private:
  // The copy holds what the log holds, so it is nobody else's to read from its first byte on.
  static uint32_t make_private() {
    LogName name;
    LogPath path;
    parse_name("tsd", &name);
    locate(name, &path);
    return path.path[0] == '\0' ? path.code : static_cast<uint32_t>(create_interim(path.path));
  }

  static TrimResult not_copied(int32_t sysrc, uint32_t code) {
    xtr_trace("XLOGTRMT: Send bad rc back to caller - Error copying");
    return {sysrc != 0 ? sysrc : 2, code, "Error copying log file to temp log"};
  }

  int32_t delete_oldest(xlog_file_header* header, uint32_t excess) {
    xlog_stage_result amounts = {{static_cast<int32_t>(std::min<uint32_t>(excess, INT32_MAX)), 0, 0, 0}};
    int32_t sysrc = xlog_delete_logs(&err_, header, &amounts);
    xtr_trace("XLOGTRMF: xlog_delete_logs rc: %d", sysrc);
    if (sysrc == 0 && (err_.error_level != XLOG_LEVEL_NONE || !err_.file_handle)) sysrc = 2;
    const int32_t closed = close();
    return sysrc != 0 ? sysrc : closed;
  }

  int32_t close() { return err_.file_handle ? xlog_close_file(&err_) : 0; }

  static void remove() {
    uint32_t ignored;
    xdfc_delete_file(kTemporary, &ignored);
  }

  xlog_err_interface err_ = {};
};

TrimResult copy_whole(const char* source, const char* destination) {
  uint32_t code = 0;
  const int32_t sysrc = copy_out(source, destination, &code);
  if (sysrc != 0) {
    xtr_trace("XLOGTRMT: Send bad rc back to caller - FileCopy error");
    return {sysrc, code, "Error copying log file"};
  }
  xtr_trace("XLOGTRMF: Good file..no need to reduce size");
  return kTrimmed;
}

}  // namespace

TrimResult trim_log(const char* destination) {
  xtr_trace("XLOGTRMF: Log file: %s", destination);
  const char* const source = strstr(destination, kAltLog) ? kAltLog : kMainLog;
  uint32_t size = 0, code = 0;
  const int32_t sysrc = xdfc_query_file_size(source, &size, &code);
  xtr_trace("XLOGTRMF: xdfc_query_file_size sysrc: %d, crc: %x", sysrc, code);
  xtr_trace("XLOGTRMF: file_size: %d", size);
  if (size <= XLOG_TRIM_SIZE) return copy_whole(source, destination);
  xtr_trace("XLOGTRMF: Log size > %d", static_cast<int>(XLOG_TRIM_SIZE));
  if (source == kAltLog)
    xtr_trace("XLOGTRMF: COPY wexocalt.log");
  else
    xtr_trace("XLOGTRMF: COPY wexolog.log");
  return TemporaryCopy().trim(source, size, destination);
}

}  // namespace plov::log

int32_t xlog_trim_log(const char* destination, uint32_t* comprc) {
  using namespace plov;
  frame::Call call("xlog_trim_log", "XLOGTRMT: -> xlog_trim_log", "XLOGTRMT: <- xlog_trim_log", comprc);
  if (call.text(destination, XLOG_TRIM_BAD_NAME)) {
    const log::TrimResult result = log::trim_log(destination);
    if (result.sysrc != 0) call.fail(static_cast<uint32_t>(result.sysrc), result.comprc);
  }
  return call.leave();
}
