#include "restart/local_shutdown.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include "frame/call.h"
#include "restart/event.h"
#include "restart/lookup.h"
#include "xbt.h"

namespace plov::restart {
namespace {

constexpr uint32_t kAttemptingLocal = 0x5084;

const char* command_for(uint32_t type) {
  switch (type) {
    case XBT_REBOOT_1:
    case XBT_REBOOT_2:
      return "reboot";
    case XBT_HALT:
      return "halt";
    default:
      return "poweroff";
  }
}

// What the command itself ends with is only traced: it may fail and the machine go down nevertheless.
void my_system(RestartRecord& record, const char* command) {
  const int result = system(command);
  if (result != -1) {
    restart_trace('F', "   my_system: Results of >%s< was %u", command, static_cast<uint32_t>(result));
    return;
  }
  const int reason = errno;
  fail(record, frame::kSystemFailure, XBT_COMMAND_FAILED);
  // Whatever came first: that the machine runs on is what the caller must learn.
  record.comprc = XBT_COMMAND_FAILED;
  record.data = static_cast<uint32_t>(reason);
  const Line line1 = lookup_err(record, bt_err_info.count, bt_err_info.table, XBT_COMMAND_FAILED, 1, reason);
  const Line line2 = lookup_err(record, bt_err_info.count, bt_err_info.table, XBT_COMMAND_FAILED, 2, strerror(reason));
  log_event(record, "my_system", line1.get(), line2.get(), XBT_COMMAND_FAILED);
}

}  // namespace

void local_shutdown(RestartRecord& record, const Request& request) {
  restart_trace('D', "-> local_shutdown");
  restart_trace('F', "   local_shutdown: Because of a failure to reach the Java world,");
  restart_trace('F', "                 : we will try to shutdown here from the C world");
  restart_trace('F', "                 : App Name is >%s<", request.name);
  // A line is shorter than this; a message without an end must not be searched for one.
  constexpr int kLongest = 255;
  restart_trace('F', "                 : App Message is >%.*s<", kLongest, request.message);
  const Line line1 = lookup_err(record, bt_err_info.count, bt_err_info.table, kAttemptingLocal, 1);
  const Line line2 = lookup_err(record, bt_err_info.count, bt_err_info.table, kAttemptingLocal, 2, request.name);
  put_event(record, "local_shutdown", line1.get(), line2.get(), kAttemptingLocal);
  my_system(record, command_for(request.type));
}

}  // namespace plov::restart
