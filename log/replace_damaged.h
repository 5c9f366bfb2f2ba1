// A damaged log file is copied to "wexosave.log", removed and begun anew.
#ifndef PLOV_LOG_REPLACE_DAMAGED_H
#define PLOV_LOG_REPLACE_DAMAGED_H

#include "log/names.h"
#include "xlog.h"

namespace plov::log {

// Takes the open file of `err`, which lies at `path`, and leaves the new one open in it. The error handler's result.
int32_t replace_damaged(const LogName& name, const LogPath& path, xlog_err_interface* err);

}  // namespace plov::log

#endif
