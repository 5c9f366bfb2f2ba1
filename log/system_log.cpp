#include "log/system_log.h"

#include <stdio.h>
#include <unistd.h>

#include <atomic>

#include "xdfc.h"

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

}  // namespace

bool system_log_wanted() {
  enum : int { kUnchecked, kOff, kOn };
  static std::atomic<int> option{kUnchecked};
  if (option == kUnchecked) option = useSyslog() ? kOn : kOff;
  return option == kOn;
}

}  // namespace plov::log
