// What a step of making room leaves in the error record when it stops.
#ifndef PLOV_LOG_MAINTAIN_FAILED_H
#define PLOV_LOG_MAINTAIN_FAILED_H

#include <errno.h>
#include <stdint.h>

#include "log/stream.h"
#include "xlog.h"

namespace plov::log {

// Always false.
inline bool failed(xlog_err_interface* err, uint16_t id, uint32_t reason, uint16_t level = XLOG_LEVEL_DAMAGED) {
  err->error_id = id;
  err->error_reason = reason;
  err->error_level = level;
  return false;
}

// Whether a transfer went well; it has one code for an error that the stream reports and one for a short transfer.
inline bool was_read(xlog_err_interface* err, const Transfer& transfer, uint16_t error_code, uint16_t short_code) {
  if (transfer.ok) return true;
  return transfer.stream_error ? failed(err, error_code, static_cast<uint32_t>(errno))
                               : failed(err, short_code, transfer.reason);
}

// A disk that takes no more is no damage of the file, which the next opening finds as the mark in its header says.
inline bool was_written(xlog_err_interface* err, const Transfer& transfer, uint16_t error_code, uint16_t short_code) {
  if (transfer.ok) return true;
  return transfer.stream_error ? failed(err, error_code, static_cast<uint32_t>(errno), XLOG_LEVEL_REPORT)
                               : failed(err, short_code, transfer.reason);
}

}  // namespace plov::log

#endif
