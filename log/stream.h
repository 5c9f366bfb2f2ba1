// Reads and writes of a log file whose every failure is noticed. stdio buffers: a full disk shows at the next seek or
// flush, and a write that follows an unnoticed one lands in the wrong place. So the seek, the write and the flush that
// belong together have one outcome.
#ifndef PLOV_LOG_STREAM_H
#define PLOV_LOG_STREAM_H

#include <stdint.h>
#include <stdio.h>

namespace plov::log {

struct Transfer {
  bool ok;
  bool stream_error;  // the stream reports an error; otherwise the transfer was short
  uint32_t reason;    // the stream's report, or the bytes transferred
};

Transfer write_here(FILE* stream, const void* bytes, uint32_t size);
Transfer write_at(FILE* stream, uint32_t offset, const void* bytes, uint32_t size);
Transfer flush(FILE* stream);
Transfer read_at(FILE* stream, uint32_t offset, void* bytes, uint32_t size);

}  // namespace plov::log

#endif
