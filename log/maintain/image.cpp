#include "log/maintain/image.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "log/stream.h"
#include "xdfc.h"
#include "xtr.h"

namespace plov::log {
namespace {

constexpr char kSuffix[] = ".new";

const char* located_path(const char* session, LogName* name, LogPath* path) {
  parse_name(session, name);
  locate(*name, path);
  return path->path;
}

// A file that only this library makes: whole or not, it is of no use to anybody else.
enum class Found { none, foreign, unfinished, complete };

Found look_at(const char* path, const xlog_file_header& live, xlog_file_header* header) {
  const int fd = open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return errno == ENOENT ? Found::none : Found::foreign;
  struct stat status;
  *header = {};
  const bool ours = fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && (status.st_mode & 0777) == 0600;
  const ssize_t got = ours ? pread(fd, header, sizeof *header, 0) : -1;
  close(fd);
  if (!ours || got < 0) return Found::foreign;
  // The three limits at its beginning are the live file's.
  constexpr size_t kLimits = offsetof(xlog_file_header, last_log_offset);
  if (memcmp(header, &live, static_cast<size_t>(got) < kLimits ? static_cast<size_t>(got) : kLimits) != 0)
    return Found::foreign;
  const bool complete = got == sizeof *header && !(header->file_flags & XLOG_FILE_PRUNE_IN_PROGRESS) &&
                        status.st_size == static_cast<off_t>(header->file_size);
  return complete ? Found::complete : Found::unfinished;
}

}  // namespace

Image::Image(const char* session) : interim_(located_path(session, &name_, &path_), kSuffix) {}

Image::~Image() {
  if (stream_) fclose(stream_);
}

bool Image::open() {
  uint32_t reason = 0;
  if (open_stream(interim_.path, "r+", &stream_, &reason) == 0 && stream_) return true;
  stream_ = nullptr;
  return false;
}

bool Image::write(FILE* live, const void* bytes, uint32_t size) {
  struct stat by_path, by_stream;
  // A log behind a link, or with a second name, has to stay the file it is.
  if (path_.path[0] == '\0' || fstat(fileno(live), &by_stream) != 0 || lstat(path_.path, &by_path) != 0 ||
      by_path.st_ino != by_stream.st_ino || by_path.st_dev != by_stream.st_dev || by_stream.st_nlink != 1)
    return false;
  if (create_interim(interim_.path) != 0) return false;
  if (open()) {
    if (fchown(fileno(stream_), by_stream.st_uid, by_stream.st_gid) != 0)
      xtr_trace("XLOG   F: the owner of %s cannot be set, errno is %d", interim_.path, errno);
    if (write_at(stream_, 0, bytes, size).ok && flush(stream_).ok) return true;
    fclose(stream_);
    stream_ = nullptr;
  }
  xtr_trace("XLOG   F: %s cannot be written, errno is %d", interim_.path, errno);
  unlink(interim_.path);
  return false;
}

bool Image::find_complete(const xlog_file_header& live, xlog_file_header* header) {
  return path_.path[0] != '\0' && look_at(interim_.path, live, header) == Found::complete && open();
}

bool Image::publish(xlog_err_interface* err) {
  // Before it can be found under its name: whoever then waits for the file's own lock must find it taken.
  if (name_.kind == XLOG_KIND_E4) lock_e4(interim_.path, stream_);
  if (rename(interim_.path, path_.path) != 0) {
    xtr_trace("XLOG   F: %s cannot be renamed, errno is %d", interim_.path, errno);
    return false;
  }
  fclose(err->file_handle);
  err->file_handle = stream_;
  stream_ = nullptr;
  return true;
}

void remove_unfinished_image(const char* path, const xlog_file_header& live) {
  const Interim interim(path, kSuffix);
  xlog_file_header header;
  const Found found = look_at(interim.path, live, &header);
  if (found == Found::unfinished || found == Found::complete) unlink(interim.path);
}

}  // namespace plov::log
