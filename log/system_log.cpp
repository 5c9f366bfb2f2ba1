#include "log/system_log.h"

#include <stdio.h>
#include <string.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>

#include "frame/deferred.h"
#include "log/event_copy.h"
#include "log/event_text.h"
#include "xdfc.h"
#include "xtr.h"

namespace plov::log {
namespace {

constexpr char kMarkerFile[] = "SyslogSystemEvents";
constexpr char kMainLog[] = "wexolog.log";

// The copy is on when the marker file lies beside the main log.
bool useSyslog() {
  char directory[XDFC_PATH_SIZE] = "";
  uint32_t code = 0;
  xdfc_query_file_location(kMainLog, directory, &code);
  if (code != 0) return false;
  char path[sizeof directory + sizeof kMarkerFile];
  snprintf(path, sizeof path, "%s%s", directory, kMarkerFile);
  return access(path, F_OK) == 0;
}

void send(const EventCopy& event) {
  EventText text;
  if (!render_event(event, &text)) return;
  openlog("QRL", 0, LOG_USER);
  syslog(LOG_USER | LOG_INFO, "%s", text.text);
}

// The values of a waiting copy are the address of its event.
static_assert(sizeof(EventCopy*) <= sizeof frame::Deferred::values);

void send_waiting(const frame::Deferred& waiting) {
  EventCopy* event;
  memcpy(&event, waiting.values, sizeof event);
  send(*OwnedEvent(event));
}

}  // namespace

void copy_to_system_log(const xlog_log_request& request) {
  xtr_trace("XLOG   F: Processing system event that should be written to the system log");
  EventCopy* const event = copy_event(request).release();
  if (!event) return;
  frame::Deferred copy = {send_waiting, {}};
  memcpy(copy.values, &event, sizeof event);
  if (!frame::record_or_defer(copy)) FreeEvent()(event);
}

bool system_log_wanted() {
  enum : int { kUnchecked, kOff, kOn };
  static std::atomic<int> option{kUnchecked};
  if (option == kUnchecked) option = useSyslog() ? kOn : kOff;
  return option == kOn;
}

}  // namespace plov::log
