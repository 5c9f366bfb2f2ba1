#include "log/retrieve/window.h"

#include <errno.h>
#include <unistd.h>

#include <algorithm>

namespace plov::log {
namespace {

// Logs of the walk that are farther apart than this are read one by one: header and, mostly, blocks with the first
// read.
constexpr uint32_t kNear = 4096;
constexpr uint32_t kAlone = 1024;

}  // namespace

Bytes Window::header(uint64_t position, uint32_t wanted, uint64_t limit) {
  if (covers(position, wanted)) return view(position, wanted);
  const uint64_t end = std::max(limit, position + wanted);
  // The next log of the walk is likely to be as far away as the last one was.
  if (end - position > kNear) return load(position, position + kAlone, position, wanted);
  return load(end > capacity_ ? end - capacity_ : 0, end, position, wanted);
}

Bytes Window::block(uint64_t position, uint32_t wanted, uint64_t log_end) {
  if (covers(position, wanted)) return view(position, wanted);
  return load(position, std::max(log_end, position + wanted), position, wanted);
}

bool Window::covers(uint64_t position, uint32_t wanted) const {
  if (position < first_ || position >= first_ + size_) return false;
  return at_end_ || wanted <= first_ + size_ - position;
}

Bytes Window::load(uint64_t first, uint64_t last, uint64_t position, uint32_t wanted) {
  const uint32_t size = static_cast<uint32_t>(std::min<uint64_t>(last - first, capacity_));
  // A sector that cannot be read fails only the log that lies in it, not those read with it.
  if (!read(first, size) && !read(position, wanted)) return {nullptr, 0, errno};
  return view(position, wanted);
}

// Fills the window from `first` on; false with errno, and an empty window, when the file cannot be read.
bool Window::read(uint64_t first, uint32_t size) {
  first_ = first;
  size_ = 0;
  at_end_ = false;
  while (size_ < size && !at_end_) {
    const ssize_t got = pread(fd_, buffer_ + size_, size - size_, static_cast<off_t>(first + size_));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) {
      size_ = 0;
      return false;
    }
    size_ += static_cast<uint32_t>(got);
    at_end_ = got == 0;
  }
  return true;
}

Bytes Window::view(uint64_t position, uint32_t wanted) const {
  if (position >= first_ + size_) return {buffer_, 0, 0};
  const uint64_t held = first_ + size_ - position;
  return {buffer_ + (position - first_), static_cast<uint32_t>(std::min<uint64_t>(held, wanted)), 0};
}

}  // namespace plov::log
