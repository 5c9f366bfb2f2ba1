// The part of the log file that a walk is in, held in memory.
//
// The walk goes backwards, a few hundred bytes at a time, where a stream reads its buffer anew for every step. So what
// lies before a log is read together with it. The log lock is held meanwhile: what was read stays true. Plain reads
// and no mapping, because a file cut short by somebody who does not know the lock must give a code and not a SIGBUS.
#ifndef PLOV_LOG_RETRIEVE_WINDOW_H
#define PLOV_LOG_RETRIEVE_WINDOW_H

#include <stddef.h>
#include <stdint.h>

namespace plov::log {

// What is there of a wanted range, valid until the next call. Less than wanted: the file ends there.
struct Bytes {
  const uint8_t* data;
  uint32_t size;
  int error;  // errno of a failed read, else 0
};

class Window {
 public:
  // The buffer is the caller's and holds at least the largest range asked for.
  Window(int fd, uint8_t* buffer, uint32_t capacity) : fd_(fd), buffer_(buffer), capacity_(capacity) {}

  // A log header that ends before `limit`, where the log walked before this one begins.
  Bytes header(uint64_t position, uint32_t wanted, uint64_t limit);

  // A block of a log that says that it ends at `log_end`: what follows in that log is read with it.
  Bytes block(uint64_t position, uint32_t wanted, uint64_t log_end);

 private:
  bool covers(uint64_t position, uint32_t wanted) const;
  Bytes load(uint64_t first, uint64_t last, uint64_t position, uint32_t wanted);
  bool read(uint64_t first, uint32_t size);
  Bytes view(uint64_t position, uint32_t wanted) const;

  int fd_;
  uint8_t* buffer_;
  uint32_t capacity_;
  uint64_t first_ = 0;  // offset of the buffer's first byte
  uint32_t size_ = 0;
  bool at_end_ = false;  // the file ends with the window
};

}  // namespace plov::log

#endif
