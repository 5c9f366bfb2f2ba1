// Opening a log file, creating it when it does not exist.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "log/interim.h"
#include "log/maintain/image.h"
#include "xdfc.h"
#include "xlog.h"
#include "xtr.h"

namespace plov::log {
namespace {

constexpr mode_t kMode = 0600;

// A stream as its trace line shows it.
unsigned handle_word(const FILE* stream) {
  return static_cast<unsigned>(reinterpret_cast<uintptr_t>(stream));
}

// Where the file is, with the traces of its kind of name. False when the table has no place for it.
bool locate_traced(const LogName& name, LogPath* path) {
  if (name.form != LogName::Form::short_name) xtr_trace("XLOG   D: found !");
  locate(name, path);
  switch (name.form) {
    case LogName::Form::short_name:
      xtr_trace("XLOG   D: (normal case) xdfc_query_file_location, sysrc = %d", path->sysrc);
      xtr_trace("XLOG   D: (normal case) ret_code = %d, log_file = %s, file_path = %s", path->code, name.file,
                path->directory);
      break;
    case LogName::Form::bare_file:
      xtr_trace("XLOG   D: xdfc_query_file_location sysrc (!) = %d, ret_code = %d, log_file = %s, file_path = %s",
                path->sysrc, path->code, name.looked_up, path->directory);
      break;
    case LogName::Form::full_path:
      xtr_trace("XLOG   D: found /");
      break;
  }
  xtr_trace("XLOG   D: file_path = %s", path->path);
  return path->code == 0;
}

int32_t open_failed(xlog_err_interface* err, int32_t sysrc) {
  err->error_id = XLOG_ERR_OPEN;
  err->error_level = XLOG_LEVEL_REPORT;
  return sysrc != 0 ? sysrc : 2;
}

void drop_stream(xlog_err_interface* err) {
  if (err->file_handle) fclose(err->file_handle);
  err->file_handle = nullptr;
}

int32_t open_existing(const LogName& name, const char* path, xlog_err_interface* err) {
  xtr_trace("XLOG   D: before xdfc_search_file_open2 log_file = %s", name.opened);
  int32_t sysrc = open_stream(path, "r+", &err->file_handle, &err->error_reason);
  xtr_trace("XLOG   D: after xdfc_search_file_open2 (1st) sysrc = %d, error_reason = %d", sysrc, err->error_reason);
  xtr_trace("XLOG   D: after xdfc_search_file_open2 (1st) error_reason text = %s",
            strerror(static_cast<int>(err->error_reason)));
  if (sysrc != 0 && (err->error_reason == EACCES || err->error_reason == EROFS)) {
    // Readable but not writable is enough for reading back.
    xtr_trace("XLOG   D: before xdfc_search_file_open2 (2nd)");
    err->error_reason = 0;
    sysrc = open_stream(path, "r", &err->file_handle, &err->error_reason);
    xtr_trace("XLOG   D: after xdfc_search_file_open2 (2nd) sysrc = %d, error_reason = %d", sysrc, err->error_reason);
    xtr_trace("XLOG   D: after xdfc_search_file_open2 (2nd) error_reason text = %s",
              strerror(static_cast<int>(err->error_reason)));
  }
  if (sysrc != 0 || !err->file_handle) return open_failed(err, sysrc);
  // A FIFO or a terminal under a log's name would hold up every logger of the machine.
  struct stat status;
  if (fstat(fileno(err->file_handle), &status) == 0 && S_ISREG(status.st_mode)) return 0;
  drop_stream(err);
  err->error_reason = EINVAL;
  return open_failed(err, 2);
}

// Failures are traced and ignored: a log with the wrong owner is better than no log.
void give_owner(FILE* stream, const char* path) {
  xtr_trace("XLOG   D: before chmod file_path = %s, perms = 0x%x", path, kMode);
  if (fchmod(fileno(stream), kMode) != 0)
    xtr_trace("XLOG___F: chmod failed setting log file permissions, errno is %d", errno);
  uid_t user;
  gid_t group;
  if (find_owner(&user, &group) && fchown(fileno(stream), user, group) != 0)
    xtr_trace("XLOG___F: chown failed setting group ccfw, errno is %d", errno);
}

// The "e4" file is also pruned by a caller that does not hold the log lock. That caller locks the file itself and
// replaces or removes it, so we wait for its lock and look whether the path still names the file that we opened. True:
// open it again.
bool e4_replaced_meanwhile(const char* path, FILE* stream) {
  lock_e4(path, stream);
  struct stat by_path, by_stream;
  if (fstat(fileno(stream), &by_stream) != 0) return false;
  if (stat(path, &by_path) != 0) return errno == ENOENT;
  return by_path.st_ino != by_stream.st_ino || by_path.st_dev != by_stream.st_dev;
}

// The real name of a new file. It never replaces a file.
int publish(const char* interim, const char* path) {
  if (renameat2(AT_FDCWD, interim, AT_FDCWD, path, RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
  // A file system without that call: a link does not replace either.
  if (link(interim, path) != 0) return errno;
  unlink(interim);
  return 0;
}

int32_t open_new(const LogName& name, const char* path, xlog_err_interface* err) {
  const Interim interim(path, ".init");
  xtr_trace("XLOG   D: before xdfc_search_file_open2 log_file = %s", name.opened);
  int32_t sysrc = 2;
  err->error_reason = static_cast<uint32_t>(create_interim(interim.path));
  if (err->error_reason == 0) sysrc = open_stream(interim.path, "w+", &err->file_handle, &err->error_reason);
  xtr_trace("XLOG   D: after xdfc_search_file_open2 (1st) sysrc = %d, error_reason = %d", sysrc, err->error_reason);
  xtr_trace("XLOG   D: after xdfc_search_file_open2 (1st) error_reason text = %s",
            strerror(static_cast<int>(err->error_reason)));
  if (sysrc != 0) {
    unlink(interim.path);
    return open_failed(err, sysrc);
  }

  give_owner(err->file_handle, path);
  int32_t result = xlog_init_file(err, name.kind);
  if (result == 0 && err->error_level != XLOG_LEVEL_NONE) result = 2;
  if (result == 0) {
    err->error_reason = static_cast<uint32_t>(publish(interim.path, path));
    if (err->error_reason != 0) result = open_failed(err, 2);
  }
  if (result != 0) {
    drop_stream(err);
    unlink(interim.path);
  }
  return result;
}

int32_t header_unreadable(xlog_err_interface* err) {
  err->error_id = XLOG_ERR_READ_FILE_HEADER;
  err->error_level = XLOG_LEVEL_DAMAGED;
  err->error_reason = static_cast<uint32_t>(errno);
  return 2;
}

bool writable(FILE* stream) {
  return (fcntl(fileno(stream), F_GETFL) & O_ACCMODE) != O_RDONLY;
}

// The file's header and links are not to be trusted before the prune that a dead process began is finished.
int32_t finish_prune(xlog_file_header* header, xlog_err_interface* err) {
  if (!writable(err->file_handle)) {
    err->error_reason = EROFS;
    return open_failed(err, 2);
  }
  const int32_t result = xlog_compress_file(header, err);
  return result == 0 && (err->error_level != XLOG_LEVEL_NONE || !err->file_handle) ? 2 : result;
}

int32_t check_header(const char* path, xlog_err_interface* err) {
  xtr_trace("XLOG   D: reading file header");
  xlog_file_header header;
  clearerr(err->file_handle);
  errno = 0;
  if (fread(&header, 1, sizeof header, err->file_handle) < sizeof header) return header_unreadable(err);
  if (header.file_flags & XLOG_FILE_PRUNE_IN_PROGRESS) {
    const int32_t finished = finish_prune(&header, err);
    if (finished != 0) return finished;
  } else if (writable(err->file_handle)) {
    remove_unfinished_image(path, header);
  }
  return fseek(err->file_handle, 0, SEEK_SET) == 0 ? 0 : header_unreadable(err);
}

int32_t open_located(const LogName& name, const char* path, xlog_err_interface* err) {
  int32_t result;
  do {
    drop_stream(err);
    result = access(path, F_OK) == 0 ? open_existing(name, path, err) : open_new(name, path, err);
  } while (result == 0 && name.kind == XLOG_KIND_E4 && e4_replaced_meanwhile(path, err->file_handle));
  return result == 0 ? check_header(path, err) : result;
}

}  // namespace
}  // namespace plov::log

int32_t xlog_open_file(xlog_err_interface* err_interface) {
  using namespace plov::log;
  xtr_trace("XLOG   D: -> xlog_open_file");
  xtr_trace("XLOG   F: log_file = %s", err_interface->target_session);
  LogName name;
  parse_name(err_interface->target_session, &name);
  if (name.form == LogName::Form::short_name) {
    err_interface->error_id = 0;
    err_interface->error_reason = static_cast<uint32_t>(strlen(err_interface->target_session));
    if (name.too_long) {
      err_interface->error_id = XLOG_ERR_NAME_TOO_LONG;
      xtr_trace("XLOG   D: <- xlog_open_file");
      return 2;
    }
  }
  LogPath path;
  int32_t result;
  if (locate_traced(name, &path)) {
    result = open_located(name, path.path, err_interface);
  } else {
    err_interface->error_reason = path.code;
    result = open_failed(err_interface, path.sysrc);
  }
  xtr_trace("XLOG   D: File handle = %x", handle_word(err_interface->file_handle));
  if (result != 0 && result != 8) result = xlog_error_handler(err_interface);
  xtr_trace("XLOG   D: <- xlog_open_file");
  return result;
}

int32_t xlog_close_file(xlog_err_interface* err_interface) {
  xtr_trace("XLOG   D: -> xlog_close_file");
  xtr_trace("XLOG   D: File handle = %x", plov::log::handle_word(err_interface->file_handle));
  uint32_t code = 0;
  int32_t result = xdfc_close_file(err_interface->file_handle, &code);
  // Gone even when closing failed: a second close of the same stream would be the worse failure.
  err_interface->file_handle = nullptr;
  if (result != 0) {
    err_interface->error_id = XLOG_ERR_CLOSE;
    err_interface->error_level = XLOG_LEVEL_RECORD;
    err_interface->error_reason = code;
    result = xlog_error_handler(err_interface);
  }
  xtr_trace("XLOG   D: <- xlog_close_file");
  return result;
}
