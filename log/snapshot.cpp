// Copies of the log files under fixed names, for a later collection of diagnostic data.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "log/copy_log.h"
#include "xlog.h"
#include "xtr.h"

namespace plov::log {
namespace {

constexpr char kMainLog[] = "wexolog.log";
constexpr char kE4Log[] = "wexoe4.log";
constexpr char kSlots[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr uint32_t kNoFile = 2;
constexpr int32_t kFailed = 8;

void find(const char* file, LogPath* path) {
  LogName name;
  name.form = LogName::Form::bare_file;
  name.looked_up = name.file = file;
  locate(name, path);
}

class Snapshot {
 public:
  int32_t take() {
    if (copy_main()) {
      copy(kE4Log, XLOG_SNAPSHOT_E4);
      copy_compressed();
    }
    for (unsigned i = 0; i < count_; ++i) record(failures_[i]);
    return result_;
  }

 private:
  struct Failure {
    uint16_t user, code;
    uint32_t reason;
  };

  // They are recorded when all is copied: recording changes what is to be copied.
  bool fail(uint16_t user, uint16_t code, uint32_t reason) {
    failures_[count_++] = {user, code, reason};
    result_ = kFailed;
    return false;
  }

  bool copy_main();
  bool copy(const char* file, uint16_t code);
  void copy_compressed();
  void record(const Failure& failure);

  Failure failures_[4];  // lock or main log, unlock, "e4", compressed copies
  unsigned count_ = 0;
  int32_t result_ = 0;
};

// False: nothing is to be copied.
bool Snapshot::copy_main() {
  uint32_t code;
  int32_t sysrc = xlog_access_sem(XLOG_SEM_LOCK, &code);
  if (sysrc != 0) {
    const auto reason = static_cast<uint32_t>(errno);
    xtr_trace("XLOG   F: unable to lock log file, sysrc = %d, comprc = %d", sysrc, code);
    return fail(0xFFFF, XLOG_SNAPSHOT_LOCK, reason);
  }
  copy(kMainLog, XLOG_SNAPSHOT_MAIN);
  sysrc = xlog_access_sem(XLOG_SEM_UNLOCK, &code);
  if (sysrc != 0) {
    const auto reason = static_cast<uint32_t>(errno);
    xtr_trace("XLOG   F: unable to unlock log file, sysrc = %d, comprc = %d", sysrc, code);
    fail(0xFFFF, XLOG_SNAPSHOT_LOCK, reason);
  }
  return true;
}

bool Snapshot::copy(const char* file, uint16_t code) {
  char target[32];
  snprintf(target, sizeof target, "cduffdc_%s", file);
  LogPath from, to;
  find(file, &from);
  find(target, &to);
  uint32_t comprc = from.code != 0 ? from.code : to.code;
  const int32_t sysrc = comprc != 0 ? 2 : copy_log(from.path, to.path, &comprc);
  if (sysrc == 0 || (code == XLOG_SNAPSHOT_COMPRESSED && comprc == kNoFile)) return true;
  switch (code) {
    case XLOG_SNAPSHOT_MAIN:
      xtr_trace("XLOG   F: Error copying wexolog.log to cduffdc_wexolog.log, sysrc = %d, comprc = %d", sysrc, comprc);
      break;
    case XLOG_SNAPSHOT_E4:
      xtr_trace("XLOG   F: Error copying wexoe4.log to cduffdc_wexoe4.log, sysrc = %d, comprc = %d", sysrc, comprc);
      break;
    default:
      xtr_trace("XLOG   F: Error copying %s to %s, sysrc = %d, comprc = %d", file, target, sysrc, comprc);
  }
  return fail(code, code, comprc);
}

void Snapshot::copy_compressed() {
  xlog_err_interface err = {};
  xlog_configuration configuration;
  if (xlog_process_init(&err, 0, &configuration) != 0) {
    xtr_trace("XLOG   F: failure getting values from wexoinit.trm file");
    result_ = kFailed;
    return;
  }
  const auto slots = std::min<size_t>(configuration.compressed_copies, sizeof kSlots - 1);
  for (size_t i = 0; i < slots; ++i) {
    char file[16];
    snprintf(file, sizeof file, "wexocom%c.log", kSlots[i]);
    if (!copy(file, XLOG_SNAPSHOT_COMPRESSED)) break;
  }
}

void Snapshot::record(const Failure& failure) {
  xlog_microcode_request request = {};
  request.type = 0xFF;
  request.user = failure.user;
  request.options = XLOG_DISPLAY_AS_ERROR_FLAG;
  memcpy(request.event_name, "Log Manager", sizeof "Log Manager");
  request.error_code = failure.code;
  request.extension = failure.reason;
  uint32_t code = 0;
  const int32_t result = xlog_microcode_log(&request, &code);
  if (result == 0) return;
  xtr_trace("XLOGJLGF: xlog_microcode_log(sysrc=0x%x, comp_rc=0x%x)", result, code);
  result_ = result;
}

}  // namespace
}  // namespace plov::log

int32_t xlog_take_snapshot() {
  xtr_trace("XLOG   T: -> xlog_take_snapshot");
  const int32_t result = plov::log::Snapshot().take();
  xtr_trace("XLOG   T: <- xlog_take_snapshot");
  return result;
}
