// From a log file back into the compressed copies that were made of it.
#ifndef PLOV_CTL_COPIES_H
#define PLOV_CTL_COPIES_H

#include <cstdint>
#include <vector>

#include "hex.h"
#include "log_source.h"
#include "xlog.h"

namespace plov::ctl {

// The log lock is held meanwhile. One walk at a time.
class CopyWalk {
 public:
  explicit CopyWalk(const LogName& log);
  ~CopyWalk();
  CopyWalk(const CopyWalk&) = delete;
  CopyWalk& operator=(const CopyWalk&) = delete;

  // The whole of the file that the walk is in.
  std::vector<uint8_t> read() const;

  // Looks through this file, whose bytes these are, newest log first, for a making of room whose copy is still there,
  // and goes on in that copy. `*reached` is then the log with which the copy ends. False: there is none.
  bool enter_copy(Bytes file, uint32_t* reached);

 private:
  bool enter_copy_ending_with(const xlog_log_info& log, uint32_t offset);

  xlog_err_interface err_{};
  int switches_ = 0;
};

}  // namespace plov::ctl

#endif
