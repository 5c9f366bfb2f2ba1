#include "log/maintain/loaded_file.h"

#include <errno.h>
#include <stddef.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>

namespace plov::log {
namespace {

// Fresh memory costs more than the read that fills it: one fault for each page. Where the kernel has large pages to
// give, there are few. It is a wish: nothing depends on the answer.
void ask_for_large_pages(uint8_t* bytes, size_t size) {
  constexpr uintptr_t kLargePage = 2 << 20;
  const uintptr_t begin = (reinterpret_cast<uintptr_t>(bytes) + kLargePage - 1) & ~(kLargePage - 1);
  const uintptr_t end = (reinterpret_cast<uintptr_t>(bytes) + size) & ~(kLargePage - 1);
  if (begin < end) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
}

}  // namespace

bool LoadedFile::load(FILE* stream, uint32_t end, uint32_t spare) {
  size_ = 0;
  read_error_ = 0;
  changed_.reset();
  deleted_.reset();
  // Never more memory than the file has bytes, whatever its header says.
  struct stat status;
  const uint64_t there = fstat(fileno(stream), &status) == 0 ? static_cast<uint64_t>(status.st_size) : end;
  const auto wanted = static_cast<uint32_t>(std::min<uint64_t>(end, there));
  // A file header has to fit, whatever is there.
  const size_t room = size_t{std::max(wanted, XLOG_FILE_HEADER_SIZE)} + spare;
  if (!bytes_.reserve(room)) return false;
  ask_for_large_pages(bytes_.get(), room);
  const Transfer read = read_at(stream, 0, bytes_.get(), wanted);
  if (read.ok)
    size_ = wanted;
  else if (read.stream_error)
    read_error_ = errno != 0 ? errno : EIO;
  else
    size_ = read.reason;
  return true;
}

bool LoadedFile::header(uint64_t offset, xlog_log_info* info) const {
  if (offset < XLOG_FILE_HEADER_SIZE || offset + sizeof *info > size_) return false;
  memcpy(info, bytes_.get() + offset, sizeof *info);
  return true;
}

void LoadedFile::set_flags(uint32_t offset, uint16_t flags) {
  const uint32_t at = offset + static_cast<uint32_t>(offsetof(xlog_log_info, log_flags));
  memcpy(bytes_.get() + at, &flags, sizeof flags);
  for (const uint32_t byte : {at, at + 1}) {
    changed_.set(byte / kStretch);
    if (flags == XLOG_LOG_DELETED) deleted_.set(byte / kStretch);
  }
}

Transfer LoadedFile::write_flags(FILE* stream, bool* deleted) {
  const uint32_t stretches = (size_ + kStretch - 1) / kStretch;
  *deleted = false;
  for (uint32_t first = 0; first < stretches; ++first) {
    if (!changed_[first]) continue;
    uint32_t behind = first;
    for (*deleted = false; behind < stretches && changed_[behind]; ++behind) *deleted |= deleted_[behind];
    const uint32_t begin = first * kStretch;
    const uint32_t end = behind == stretches ? size_ : behind * kStretch;
    const Transfer written = write_at(stream, begin, bytes_.get() + begin, end - begin);
    if (!written.ok) return written;
    first = behind;
  }
  *deleted = deleted_.any();
  changed_.reset();
  deleted_.reset();
  return flush(stream);
}

}  // namespace plov::log
