#include "log/maintain/copy.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include "log/copy_log.h"
#include "log/interim.h"
#include "log/maintain/slot.h"
#include "xdfc.h"
#include "xtr.h"

namespace plov::log {
namespace {

constexpr char kMainLog[] = "wexolog.log";
constexpr uint32_t kReplace = XDFC_DE_CREAT | XDFC_E_REPLACE;

void report(const char* format, ...) PLOV_PRINTF(1, 2);
void report(const char* format, ...) {
  char line[XDFC_PATH_SIZE];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  xtr_trace("XLOG___F: %s", line);
  syslog(LOG_CRIT, "%s", line);
}

time_t time_of(const xdfc_file_date& date) {
  struct tm local = {};
  local.tm_year = date.year - 1900;
  local.tm_mon = date.month - 1;
  local.tm_mday = date.day;
  local.tm_hour = date.hour;
  local.tm_min = date.minute;
  local.tm_sec = date.second;
  local.tm_isdst = -1;
  return mktime(&local);
}

// A copy on its way to its slot.
class Copy {
 public:
  explicit Copy(const char* slot_name) : name_(slot_name), interim_(find(slot_name), ".init") {}

  void make() {
    path_ = located() && create_interim(interim_.path) == 0 ? interim_.path : slot_.path;
    uint32_t code = 0;
    int32_t rc = copy_to_path(&code);
    if (rc != 0 && path_ == interim_.path) {
      unlink(interim_.path);
      path_ = slot_.path;
      // Without the older copy there is room for this one. What else failed would fail again and cost the older one.
      struct stat status;
      if (disk_full(code) && lstat(slot_.path, &status) == 0 && S_ISREG(status.st_mode)) rc = copy_to_path(&code);
    }
    if (rc != 0) report("file_copy failed for comp log, rc = %x, crc = %x", rc, code);
    if (!located()) report("query file_loc failed for comp log, rc = %x, crc = %x", slot_.sysrc, slot_.code);
  }

  void give_owner() {
    if (chmod(path_, 0600) != 0) report("chmod failed for comp log [%s] with errno of %d", name_, errno);
    uid_t user;
    gid_t group;
    if (find_owner(&user, &group) && chown(path_, user, group) != 0)
      report("chown failed for comp log [%s] with errno of %d", name_, errno);
  }

  void write_size(uint16_t size_word) {
    FILE* stream = nullptr;
    uint32_t code = 0;
    int32_t rc = open_stream(path_, "r+", &stream, &code);
    if (rc != 0 || !stream) {
      report("search_file_open2 failed for comp log [%s], rc=%x, crc=%x", name_, rc, code);
      return;
    }
    int32_t written = 0;
    rc = xdfc_write(&size_word, 1, sizeof size_word, stream, &written, &code);
    if (rc != 0) report("xdfc_write failed for comp log [%s], rc=%x, crc=%x", name_, rc, code);
    rc = xdfc_close_file(stream, &code);
    if (rc != 0) report("close_file failed for comp log [%s], rc=%x, crc=%x", name_, rc, code);
  }

  void publish() {
    if (path_ == slot_.path || rename(path_, slot_.path) == 0) return;
    report("file_copy failed for comp log, rc = %x, crc = %x", 2, errno);
    unlink(path_);
  }

 private:
  const char* find(const char* slot_name) {
    LogName name;
    char session[32];
    snprintf(session, sizeof session, "!%s", slot_name);
    parse_name(session, &name);
    locate(name, &slot_);
    return slot_.path;
  }

  bool located() const { return slot_.path[0] != '\0'; }

  int32_t copy_to_path(uint32_t* code) {
    char target[kPathSize + 16];
    snprintf(target, sizeof target, "%s%s", located() ? "!" : name_, path_);
    return xdfc_file_copy(kMainLog, target, kReplace, code);
  }

  const char* name_;
  LogPath slot_;
  Interim interim_;
  const char* path_ = slot_.path;  // where the copy is now
};

}  // namespace

int choose_slot(uint16_t slots) {
  SlotChoice choice;
  const int count = slots < kMaxSlots ? slots : kMaxSlots;
  for (int slot = 0; slot < count; ++slot) {
    const SlotName name(slot);
    xdfc_file_date date;
    uint32_t size, code;
    // The size first: asking for the date of a file that is not there counts as a hard disk error.
    if (xdfc_query_file_size(name.text, &size, &code) != 0 || xdfc_query_file_date(name.text, &date, &code) != 0)
      return slot;
    choice.see(slot, time_of(date));
  }
  return choice.choose(time(nullptr));
}

SlotName::SlotName(int slot) {
  snprintf(text, sizeof text, "wexocom%c.log", kSlotDigits[slot]);
}

void copy_main_log(const char* slot_name, uint16_t size_word) {
  openlog("xlog_stage_one", LOG_PID, LOG_USER);
  Copy copy(slot_name);
  copy.make();
  copy.give_owner();
  copy.write_size(size_word);
  copy.publish();
  closelog();
}

}  // namespace plov::log
