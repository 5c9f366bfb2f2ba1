// Asking for a restart: the check of what the caller hands over, the Java side first, the machine's own command when
// that fails.
#include <string.h>

#include "frame/call.h"
#include "frame/probe.h"
#include "restart/java_side.h"
#include "restart/local_shutdown.h"
#include "restart/record.h"
#include "xbt.h"
#include "xpce.h"

namespace plov::restart {
namespace {

constexpr uint32_t kInternalRefusal = 4;

// The string can be read; its length, also when no probe could be made.
bool readable(const char* string, uint32_t* length) {
  uint32_t scratch = 0;
  if (frame::probe_string(string, length, &scratch) != 0) return false;
  if (scratch == XPCE_PROBE_WRITABLE) *length = static_cast<uint32_t>(strlen(string));
  return true;
}

bool good_name(const char* name, uint32_t* length) {
  *length = 0;
  return readable(name, length) && *length > 0 && *length <= XBT_NAME_LIMIT;
}

bool refuse(RestartRecord& record, uint32_t code) {
  fail(record, frame::kRefused, code);
  return false;
}

bool chk_shutdown_parms(RestartRecord& record, Request& request) {
  if (!good_name(request.name, &request.name_length)) {
    restart_trace('F', "   chk_shutdown_parms: my_app_name rc= %u, str_len= %u", kInternalRefusal, request.name_length);
    return refuse(record, XBT_BAD_NAME);
  }
  // It is the name that is looked at again, so a bad message is not refused: callers ask for a restart with whatever
  // message they have left, and must get it. Do not repair.
  if (request.message && !good_name(request.name, &request.name_length)) {
    restart_trace('F', "   chk_shutdown_parms: my_app_msg rc= %u, str_len= %u", kInternalRefusal, request.name_length);
    return refuse(record, XBT_BAD_MESSAGE);
  }
  if (request.type == 0 || request.type > XBT_POWER_OFF) {
    restart_trace('F', "   chk_shutdown_parms: restart_type = %u", request.type);
    return refuse(record, XBT_BAD_TYPE);
  }
  if (!request.message || !readable(request.message, &request.message_length)) {
    request.message = "";
    request.message_length = 0;
  }
  return true;
}

void do_xbt_restart(RestartRecord& record, const Request& request) {
  if (ask_java(record, request)) return;
  restart_trace('F', "   do_xbt_restart: Because of a failure to reach the Java world,");
  restart_trace('F', "                 : we will try to shutdown here from the C world");
  local_shutdown(record, request);
}

}  // namespace
}  // namespace plov::restart

int32_t xbt_restart(uint32_t* comprc, const char* application_name, const char* application_message,
                    uint32_t restart_type) {
  using namespace plov::restart;
  restart_trace('T', "-> xbt_restart:");
  RestartRecord record = {0, 0, 0, 1, "xbt_restart   ", nullptr, kKindRestart, 0};
  uint32_t scratch;
  if (plov::frame::probe(comprc, sizeof *comprc, plov::frame::Access::write, &scratch) != 0) {
    record.sysrc = plov::frame::kUnusableComprc;
  } else {
    Request request = {application_name, 0, application_message, 0, restart_type};
    if (chk_shutdown_parms(record, request)) do_xbt_restart(record, request);
    *comprc = record.comprc;
    if (record.sysrc != 0) restart_trace('F', "   xbt_restart: src= 0x%X, crc= 0x%X", record.sysrc, record.comprc);
  }
  restart_trace('T', "<- xbt_restart:");
  return static_cast<int32_t>(record.sysrc);
}
