// The report on its way to the daemon.
#include <errno.h>

#include "frame/trace_line.h"
#include "pce/backtrace.h"
#include "pce/daemon.h"
#include "pce/send.h"
#include "xpce.h"
#include "xtr.h"

namespace plov::pce {
namespace {

using frame::pce_trace_line;
using Fetch = decltype(&xtr_fetch_pid);

// Fills one trace area, or leaves it empty.
void fetch_trace(Fetch fetch, const char* name, char (&area)[PCE_TRACE_AREA_SIZE], uint32_t& length) {
  uint32_t count = 0, crc = 0;
  const int32_t src = fetch(area, sizeof area, 1, &count, &crc);
  length = src == 0 ? sizeof area : 0;
  if (src != 0)
    pce_trace_line('F', "   fwd_to_daemon: %s failed with src= %u, crc = %u", name, static_cast<uint32_t>(src), crc);
}

}  // namespace

int32_t fwd_to_daemon(pce_call_record& record, pce_wire_take_log& request, int32_t socket) {
  pce_trace_line('D', "-> fwd_to_daemon:");
  request.header.length = sizeof request;
  request.header.code = SMSG_TAKE_LOG_REQ;
  request.header.pid = xtr_getpid();
  request.header.tid = xtr_gettid();
  uint32_t length = 0;
  fetch_trace(xtr_fetch_pid, "xtr_fetch_pid", request.process_trace, length);
  request.process_trace_length = length;
  fetch_trace(xtr_fetch_tid, "xtr_fetch_tid", request.thread_trace, length);
  request.thread_trace_length = length;
  prot_collect_btrace(record, request.backtrace, length);
  request.backtrace_length = length;
  // A forked child has no connection, for its parent's is not its own. That of a process which registered with an
  // earlier daemon leads nowhere.
  if (socket < 0) socket = connect_to_daemon(record);
  int32_t result = pce_send_a_msg(record, socket, &request, kSendTime);
  if (result == EPIPE || result == ECONNRESET)
    if (const int32_t anew = connect_to_daemon(record); anew >= 0)
      result = pce_send_a_msg(record, anew, &request, kSendTime);
  if (result != 0)
    pce_trace_line('F', "   fwd_to_daemon: ERROR!!! Unable to send Logging request to PCE Daemon process");
  pce_trace_line('D', "<- fwd_to_daemon:");
  return result;
}

}  // namespace plov::pce
