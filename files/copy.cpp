// Copying a file with its times.
#include <errno.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

#include "files/full_path.h"
#include "files/hard_error.h"
#include "files/stream_error.h"
#include "frame/call.h"
#include "frame/memory.h"
#include "xdfc.h"
#include "xtr.h"

namespace plov::files {
namespace {

constexpr uint32_t kNameLimit = 512;
constexpr size_t kBlockSize = 4096;
constexpr size_t kGathered = 128 << 10;

struct Mode {
  const char* shown;
  const char* used;  // "e": no started program inherits the descriptor
};
constexpr Mode kReplace = {"w+", "w+e"};
constexpr Mode kAppend = {"a+", "a+e"};

// Whether the target is there to be protected by the flags. One that only cannot be read (no permission, no descriptor
// left) is.
bool exists(const char* target) {
  uint32_t size, code = 0;
  if (xdfc_query_file_size(target, &size, &code) == 0) return true;
  char path[kFullPathSize];
  return xdfc_getfilepath(target, path) == 0 && access(path, F_OK) == 0;
}

// nullptr: the target exists and no flag allows for that.
const Mode* target_mode(const char* target, uint32_t flags) {
  if (!exists(target)) return &kReplace;
  if (flags & XDFC_E_APPEND) return &kAppend;
  return flags & (XDFC_E_OPEN | XDFC_E_REPLACE) ? &kReplace : nullptr;
}

// Opening the target would empty the source, or the copy would chase its own tail.
bool same_file(FILE* source, const char* target) {
  struct stat a, b;
  return fstat(fileno(source), &a) == 0 && stat(target, &b) == 0 && a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

void broken(frame::Call& call, int32_t error_id, const char* path, int saved_errno) {
  const uint32_t error = stream_error(saved_errno);
  xtr_trace("XDFCFC F: File copy for [%s] I/O error detected, error code is %d", path, error);
  call.fail(xdfc_hard_err(error_id, error, path), error);
}

void copy_blocks(frame::Call& call, FILE* source, const char* source_path, FILE* target, const char* target_path) {
  const frame::Owned<char> buffer(static_cast<char*>(PLOV_MALLOC(kBlockSize)));
  if (!buffer) {
    call.refuse(XDFC_NO_MEMORY);
    return;
  }
  size_t got;
  do {
    errno = 0;
    got = fread(buffer.get(), 1, kBlockSize, source);
    const int read_errno = errno;
    errno = 0;
    const bool written = fwrite(buffer.get(), 1, got, target) == got;
    const int write_errno = errno;
    if (got < kBlockSize && ferror(source)) return broken(call, kHardErrorCopyRead, source_path, read_errno);
    if (!written) return broken(call, kHardErrorCopyWrite, target_path, write_errno);
  } while (got == kBlockSize);
  // The C library tells of a full disk only when it empties its buffer.
  errno = 0;
  if (fflush(target) != 0) broken(call, kHardErrorCopyWrite, target_path, errno);
}

// A stream that gathers blocks: one call into the kernel for each would double the time of a copy. It outlives the
// stream. Without memory the stream keeps its own buffer.
void gather(FILE* stream, frame::TransferBuffer* buffer) {
  if (buffer->reserve(kGathered)) setvbuf(stream, reinterpret_cast<char*>(buffer->get()), _IOFBF, kGathered);
}

void copy_contents(frame::Call& call, const char* source_path, const char* target_path, const Mode& mode) {
  frame::TransferBuffer source_buffer, target_buffer;
  FILE* const source = fopen(source_path, "re");
  if (!source) {
    const int error = errno;
    xtr_trace("XDFCFC F: File copy src file open error %d", error);
    call.refuse(static_cast<uint32_t>(error));
    return;
  }
  FILE* target = nullptr;
  if (same_file(source, target_path)) {
    xtr_trace("XDFCFC F: File copy src and tgt are the same file");
    call.refuse(XDFC_EXISTS);
  } else if (target = fopen(target_path, mode.used); !target) {
    const int error = errno;
    xtr_trace("XDFCFC F: File copy tgt file open error %d", error);
    call.refuse(static_cast<uint32_t>(error));
  } else {
    gather(source, &source_buffer);
    gather(target, &target_buffer);
    copy_blocks(call, source, source_path, target, target_path);
    errno = 0;
    if (fclose(target) != 0 && call.ok()) broken(call, kHardErrorCopyWrite, target_path, errno);
  }
  fclose(source);
}

// Also after a failure: the times tell service staff what a partial copy is a copy of.
void copy_times(const char* source_path, const char* target_path) {
  struct stat status;
  const int rc = stat(source_path, &status);
  if (rc != 0) return;
  xtr_trace("XDFCFC T: File copy stat rc %d", rc);
  const struct utimbuf times = {status.st_atime, status.st_mtime};
  xtr_trace("XDFCFC T: File copy utime rc %d", utime(target_path, &times));
}

void copy(frame::Call& call, const char* source, const char* target, uint32_t flags) {
  const Mode* const mode = target_mode(target, flags);
  if (!mode) {
    call.refuse(XDFC_EXISTS);
    return;
  }
  char source_path[kFullPathSize], target_path[kFullPathSize];
  uint32_t failure = xdfc_getfilepath(source, source_path);
  if (failure == 0) failure = xdfc_getfilepath(target, target_path);
  if (failure != 0) {
    call.refuse(failure);
    return;
  }
  xtr_trace("XDFCFC F: File copy src file [%s]", source_path);
  xtr_trace("XDFCFC F: File copy tgt file [%s]", target_path);
  xtr_trace("XDFCFC F: File copy open flags = [%s]", mode->shown);
  copy_contents(call, source_path, target_path, *mode);
  copy_times(source_path, target_path);
}

}  // namespace
}  // namespace plov::files

int32_t xdfc_file_copy(const char* source, const char* target, uint32_t flags, uint32_t* comprc) {
  using plov::files::kNameLimit;
  plov::frame::Call call("xdfc_file_copy", "XDFCFC T: -> xdfc_file_copy", "XDFCFC T: <- xdfc_file_copy", comprc);
  uint32_t source_length = 0, target_length = 0;
  if (call.text(source, XDFC_BAD_ARGUMENT_1, &source_length) &&
      call.text(target, XDFC_BAD_ARGUMENT_2, &target_length)) {
    if (source_length == 0 || source_length > kNameLimit || target_length == 0 || target_length > kNameLimit)
      call.refuse(XDFC_BAD_LENGTH);
    else
      plov::files::copy(call, source, target, flags);
  }
  return call.leave();
}
