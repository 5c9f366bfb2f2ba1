// Deleting and compacting, as the steps that make room share it.
#ifndef PLOV_LOG_MAINTAIN_MAKE_ROOM_H
#define PLOV_LOG_MAINTAIN_MAKE_ROOM_H

#include "log/maintain/loaded_file.h"
#include "xlog.h"

namespace plov::log {

// The "logcomp" event, which tells that room was made. Built for the end of a file.
struct PLOV_PACKED LogcompEvent {
  xlog_log_info info;
  xlog_block_info block_info[3];
  uint8_t data[5 + 5 + 2];
};

class Logcomp {
 public:
  Logcomp(const xlog_file_header& file, uint32_t now);

  uint32_t size() const { return event_size_; }
  uint32_t header_size() const { return header_size_; }
  const uint8_t* bytes() const { return bytes_; }
  void enter(xlog_file_header* file) const;  // as the newest log of the file

 private:
  uint8_t bytes_[sizeof(LogcompEvent)] = {};
  uint32_t header_size_ = 0, event_size_ = 0;
};

bool is_logcomp(const xlog_log_info& info);

// xlog_delete_logs. With `logcomp` the finished file ends in that event where it can: then the event and the deletion
// become visible at once. `*logcomp` tells whether it is there. `file` is what is loaded of the file already.
int32_t delete_logs(xlog_err_interface* err, xlog_file_header* header, xlog_stage_result* amounts, bool* logcomp,
                    LoadedFile& file);

}  // namespace plov::log

#endif
