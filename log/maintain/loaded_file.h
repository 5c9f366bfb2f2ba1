// A log file in memory. Making room looks at every log of the file, and a stream would read its buffer anew for each of
// them: one large read instead, and one write for each stretch that was changed.
#ifndef PLOV_LOG_MAINTAIN_LOADED_FILE_H
#define PLOV_LOG_MAINTAIN_LOADED_FILE_H

#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <bitset>

#include "frame/memory.h"
#include "log/stream.h"
#include "xlog_format.h"

namespace plov::log {

class LoadedFile {
 public:
  // Reads what is there of the first `end` bytes. False when there is no memory for it; a read that fails shows as a
  // file without contents and in read_error(). Room for `spare` more bytes stays behind.
  bool load(FILE* stream, uint32_t end, uint32_t spare);

  bool loaded() const { return bytes_.get() != nullptr; }
  uint32_t size() const { return size_; }
  int read_error() const { return read_error_; }
  uint8_t* bytes() { return bytes_.get(); }

  // The log header at `offset`, without its block entries; false when it does not lie whole between the file header and
  // the end.
  bool header(uint64_t offset, xlog_log_info* info) const;
  void set_flags(uint32_t offset, uint16_t flags);

  // Writes the flags that were set since the last call. On failure `*deleted` tells whether the stretch that could not
  // be written holds a log newly marked as deleted.
  Transfer write_flags(FILE* stream, bool* deleted);

 private:
  static constexpr uint32_t kStretch = 65536;
  static constexpr uint32_t kStretches = 65536;  // of kStretch bytes: any 32-bit offset

  frame::TransferBuffer bytes_;
  uint32_t size_ = 0;
  int read_error_ = 0;
  std::bitset<kStretches> changed_, deleted_;
};

// Whether a log with this header can be one, whatever it says of its blocks.
inline bool possible_length(const xlog_log_info& info) {
  return info.num_blocks <= XLOG_MAX_BLOCKS &&
         info.total_log_size >= sizeof info + info.num_blocks * sizeof(xlog_block_info);
}

}  // namespace plov::log

#endif
