// The entry in the main log that names a failure of the log manager.
#ifndef PLOV_LOG_ERROR_LOG_H
#define PLOV_LOG_ERROR_LOG_H

#include "xlog.h"

namespace plov::log {

inline constexpr int32_t kHandled = 8;  // the error handler's own result

// kHandled, or the result of the recording when it failed.
int32_t record_error_log(const xlog_err_interface& err);

}  // namespace plov::log

#endif
