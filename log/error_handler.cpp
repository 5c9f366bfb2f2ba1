// Where every failed log operation ends. Level 1 is the only one that acts so far: it reports. The others report like
// it.
#include "log/names.h"
#include "xlog.h"
#include "xtr.h"

uint32_t xlog_error_pending;

int32_t xlog_error_handler(xlog_err_interface* err_interface) {
  using namespace plov::log;
  xtr_trace("XLOG   F: -> xlog_error_handler");
  xtr_trace("XLOG   F: -> error_id = %x, error_reason = %x", err_interface->error_id, err_interface->error_reason);
  if (xlog_error_pending != 0) err_interface->error_level = XLOG_LEVEL_REPORT;

  LogName name;
  parse_name(err_interface->target_session, &name);
  xtr_trace("XLOG   F: err_interface->target_session = %s", err_interface->target_session);
  if (name.form != LogName::Form::short_name) xtr_trace("XLOG   F: found !");
  if (name.form == LogName::Form::full_path) xtr_trace("XLOG   F: found /");
  xtr_trace("XLOG   F: log_file = %s", name.file);

  ++xlog_error_pending;
  // A failure is acted on once: whoever hands the same record in again only has it reported.
  err_interface->error_level = XLOG_LEVEL_REPORT;
  --xlog_error_pending;
  xtr_trace("XLOG   F: <- xlog_error_handler");
  return 8;
}
