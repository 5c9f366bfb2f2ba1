#include "pce/report.h"

#include <pthread.h>
#include <string.h>
#include <unistd.h>

#include "pce/backtrace.h"
#include "pce/daemon.h"
#include "xlog.h"
#include "xpce.h"
#include "xtr.h"

namespace plov::pce {
namespace {

// Not on the handler's stack, where 113 KB may not be free: a thread without an alternate one crashes too. There is one
// report in a process, so one of each is enough.
pce_wire_take_log request;
xpce_process_information process;
xlog_microcode_request log_request;
xlog_data_node stack_block;

// Block 4 beside the text: the stack area.
constexpr uint8_t kStackBlock = 4;

void log_directly(pce_wire_take_log& report, uint32_t report_id, int signal) {
  memset(&log_request, 0, sizeof log_request);
  log_request.type = 0x3D;
  log_request.options = 0x300;
  memcpy(log_request.event_name, "PCERROR", sizeof "PCERROR");
  log_request.error_code = static_cast<uint16_t>(report_id);
  log_request.extension = static_cast<uint32_t>(signal);
  log_request.data = report.text;
  log_request.data_size = report.text_length;
  if (report.stack_length > 0) {
    stack_block = {report.stack_length, kStackBlock, report.stack, nullptr};
    log_request.chain = &stack_block;
  }
  uint32_t comprc = 0;
  const int32_t sysrc = xlog_microcode_log(&log_request, &comprc);
  if (sysrc != 0)
    xtr_trace("XPCE___F:    reporterr: Call to xlog_microcode_log returned %u/%u", static_cast<uint32_t>(sysrc),
              comprc);
}

void convert(int signal, const siginfo_t* information, void* context, const char* tag) {
  memset(&process, 0, sizeof process);
  memset(&request, 0, sizeof request);
  process.pid = getpid();
  process.parent_pid = getppid();
  process.thread = pthread_self();
  uint32_t text_length = 0, stack_length = 0;
  xpce_convert_data(request.text, &text_length, request.stack, &stack_length, &process, signal, information, context,
                    tag);
  request.text_length = text_length;
  request.stack_length = stack_length;
  xtr_trace("XPCE__1F: BufLen returned from convert routine = %u", text_length);
}

}  // namespace

void FormatException(pce_call_record& record, uint32_t previous, uint32_t report_id, int signal,
                     const siginfo_t* information, void* context, const char* tag) {
  xtr_trace("XPCE__1D: -> FormatException");
  if (previous == 0) {
    set_interrupted(context);
    convert(signal, information, context, tag);
  }
  reporterr(record, previous, request, report_id, signal);
  xtr_trace("XPCE__1D: <- FormatException");
}

int32_t reporterr(pce_call_record& record, uint32_t previous, pce_wire_take_log& report, uint32_t report_id,
                  int signal) {
  xtr_trace("XPCE___F:    reporterr: log interface routine called, errorid= 0x%x, comprc=0x%4.4x", report_id,
            static_cast<unsigned>(signal));
  if (signal == SIGTERM) {
    xtr_trace("XPCE___F:    reporterr: This is a SIGTERM - Do not log this exception");
  } else if (previous != 0) {
    xtr_trace("XPCE___T:    reporterr: This is not the first exception for this process. Log will");
    xtr_trace("XPCE___T:             : not be taken from this thread.");
  } else if (record.crash != 0) {
    report.report_id = report_id;
    report.signal = static_cast<uint32_t>(signal);
    fwd_to_daemon(record, report, gl_daemon_sock);
  } else {
    log_directly(report, report_id, signal);
  }
  return 0;
}

}  // namespace plov::pce
