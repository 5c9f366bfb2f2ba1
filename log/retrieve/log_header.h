// The one door through which a log header comes from the file into the program. Behind it the number of blocks and the
// links may be believed.
#ifndef PLOV_LOG_RETRIEVE_LOG_HEADER_H
#define PLOV_LOG_RETRIEVE_LOG_HEADER_H

#include "log/retrieve/failure.h"
#include "log/retrieve/window.h"

namespace plov::log {

// Copies the header at `offset` out of the bytes there; fails when it is cut off or cannot be one. Only the used block
// entries of `header` are written.
Failure load_log_header(const Bytes& bytes, uint32_t offset, uint32_t file_size, xlog_log_header* header);

// Where the data of the first block lie.
inline uint64_t first_block(const xlog_log_header& header, uint32_t offset) {
  return uint64_t{offset} + sizeof header.log_info + header.log_info.num_blocks * sizeof header.block_info[0];
}

}  // namespace plov::log

#endif
