// A log that is being put together: its header in memory, entry by entry, and what the file's limits say of it.
#ifndef PLOV_LOG_NEW_LOG_H
#define PLOV_LOG_NEW_LOG_H

#include <stdint.h>

#include "xlog.h"

namespace plov::log {

class NewLog {
 public:
  // Event, name and flags of the request; the stamp and the links come later.
  explicit NewLog(const xlog_log_request& request);

  // Adds a block; its size counts until stored() replaces it. False when the header has no room for another entry.
  bool add(uint8_t block_id, uint32_t size);

  // The stored size of the block of this entry.
  void stored(uint32_t entry, uint32_t size);

  // Closes the list of entries: from here on total() includes the header.
  void complete();

  // Chains the log into the file that this header describes, at its end.
  void link(const xlog_file_header& file, const xlog_timestamp& timestamp);

  uint32_t total() const { return header_.log_info.total_log_size; }
  uint32_t entries() const { return header_.log_info.num_blocks; }
  uint32_t header_size() const { return sizeof(xlog_log_info) + entries() * sizeof(xlog_block_info); }
  const xlog_log_header& header() const { return header_; }

  bool larger_than_one_may_be(const xlog_file_header& file) const {
    return total() > file.max_single_log_size * XLOG_SIZE_UNIT;
  }
  bool fits(const xlog_file_header& file) const {
    return uint64_t{file.file_size} + total() <= uint64_t{file.max_file_size} * XLOG_SIZE_UNIT;
  }

 private:
  xlog_log_header header_ = {};
};

// Makes the log at `offset` the newest of the file.
void make_newest(xlog_file_header* file, const NewLog& log, uint32_t offset);

}  // namespace plov::log

#endif
