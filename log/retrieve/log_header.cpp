#include "log/retrieve/log_header.h"

#include <string.h>

namespace plov::log {

Failure load_log_header(const Bytes& bytes, uint32_t offset, uint32_t file_size, xlog_log_header* header) {
  xlog_log_info& info = header->log_info;
  if (bytes.error) return damaged(XLOG_RETRIEVE_HEADER_ERROR, static_cast<uint32_t>(bytes.error));
  if (bytes.size < sizeof info) return damaged(XLOG_RETRIEVE_HEADER_SHORT, bytes.size);
  memcpy(&info, bytes.data, sizeof info);

  const bool possible = offset >= XLOG_FILE_HEADER_SIZE && info.num_blocks <= XLOG_MAX_BLOCKS &&
                        info.prev_log_offset <= file_size && first_block(*header, offset) - offset <= bytes.size;
  if (!possible) return damaged(XLOG_RETRIEVE_CORRUPT, offset);
  memcpy(header->block_info, bytes.data + sizeof info, info.num_blocks * sizeof header->block_info[0]);
  return {};
}

}  // namespace plov::log
