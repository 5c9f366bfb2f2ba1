#include "log/operation.h"

#include <string.h>

#include "log/lock.h"

namespace plov::log {

Operation::Operation(const char* session, uint32_t size) : err{} {
  const uint32_t limit = size < sizeof err.target_session ? size : sizeof err.target_session - 1;
  memcpy(err.target_session, session, strnlen(session, limit));
}

bool Operation::lock(uint32_t* code) {
  locked_ = xlog_access_sem(XLOG_SEM_LOCK, code) == 0;
  if (locked_ && xlog_sig_flag == 0) {
    xlog_sig_handler(1);
    guarded_ = xlog_sig_flag != 0;
  }
  return locked_;
}

int32_t Operation::end() {
  if (ended_) return 0;
  ended_ = true;
  const int32_t result = err.file_handle ? xlog_close_file(&err) : 0;
  if (guarded_ && xlog_sig_flag != 0) xlog_sig_handler(2);
  uint32_t code;
  if (locked_ || !lock_held()) xlog_access_sem(XLOG_SEM_UNLOCK, &code);
  return result;
}

}  // namespace plov::log
