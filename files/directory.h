// A directory being read, in the order in which it yields its entries.
#ifndef PLOV_FILES_DIRECTORY_H
#define PLOV_FILES_DIRECTORY_H

#include <dirent.h>
#include <errno.h>

namespace plov::files {

class Directory {
 public:
  explicit Directory(const char* path) : stream_(opendir(path)), error_(stream_ ? 0 : errno) {}
  ~Directory() {
    if (stream_) closedir(stream_);
  }
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;

  bool is_open() const { return stream_ != nullptr; }

  // The next entry; null at the end, and after a failure.
  const struct dirent* next() {
    errno = 0;
    const struct dirent* const entry = readdir(stream_);
    if (!entry) error_ = errno;
    return entry;
  }

  // The errno of a failed opening or reading, else 0.
  int error() const { return error_; }

  // For looking at entries by their names.
  int descriptor() const { return dirfd(stream_); }

 private:
  DIR* stream_;
  int error_;
};

}  // namespace plov::files

#endif
