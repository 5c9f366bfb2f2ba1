// The stage before deletion, inside an operation that makes room.
#ifndef PLOV_LOG_MAINTAIN_STAGE_H
#define PLOV_LOG_MAINTAIN_STAGE_H

#include "log/maintain/loaded_file.h"
#include "xlog.h"

namespace plov::log {

// Of xlog_stage_one: the failure is in the error record.
inline constexpr int32_t kStageFailed = 24;

// xlog_stage_one. `file` holds the file as it is then, so that the deletion need not read it again.
int32_t stage_one(const xlog_file_header& header, xlog_err_interface* err, xlog_stage_result* result, char* copy_name,
                  LoadedFile* file);

}  // namespace plov::log

#endif
