// The names of the files that match, packed into the caller's memory.
#include <fnmatch.h>
#include <string.h>

#include "files/directory.h"
#include "files/hard_error.h"
#include "files/list_split.h"
#include "frame/call.h"
#include "xdfc.h"
#include "xtr.h"

namespace plov::files {
namespace {

constexpr uint32_t kPatternLimit = 255;

uint32_t no_working_directory(int error) {
  xtr_trace("XDFCLF F:    error %d from getpwd()", error);
  return static_cast<uint32_t>(error);
}

void device_failure(frame::Call& call, int32_t error_id, int error, const char* path) {
  const auto code = static_cast<uint32_t>(error);
  call.fail(xdfc_hard_err(error_id, code, path), code);
}

void list_file_mem(frame::Call& call, const char* pattern, char* buffer, uint32_t size, uint32_t* count) {
  *count = 0;
  if (size > 0) buffer[0] = '\0';
  ListPath path;
  if (!split(call, pattern, path, no_working_directory)) return;
  Directory directory(path.directory);
  if (!directory.is_open()) {
    xtr_trace("XDFCLFMF:    List_file_mem error in opendir of %d", directory.error());
    return device_failure(call, kHardErrorOpenDirectory, directory.error(), path.directory);
  }
  size_t left = size;
  while (const struct dirent* const entry = directory.next()) {
    if (fnmatch(path.file, entry->d_name, FNM_NOESCAPE) != 0) continue;
    const size_t needed = strlen(entry->d_name) + 1;
    xtr_trace("XDFCLFMD:    match name=[%s], needed = %d, left = %ld", entry->d_name, static_cast<int>(needed),
              static_cast<long>(left));
    if (needed > left) {
      call.refuse(XDFC_BUFFER_TOO_SMALL);
      return;
    }
    memcpy(buffer + (size - left), entry->d_name, needed);
    left -= needed;
    ++*count;
  }
  if (directory.error() != 0) {
    xtr_trace("XDFCLFMF:    List_file_mem error in readdir of %d", directory.error());
    device_failure(call, kHardErrorReadDirectory, directory.error(), path.directory);
  }
}

}  // namespace
}  // namespace plov::files

int32_t xdfc_list_file_mem(const char* pattern, char* buffer, uint32_t size, uint32_t* count, uint32_t* comprc) {
  plov::frame::Call call("xdfc_list_file_mem", "XDFCLFMT: -> xdfc_list_file_mem", "XDFCLFMT: <- xdfc_list_file_mem",
                         comprc);
  uint32_t length = 0;
  if (call.text(pattern, XDFC_BAD_ARGUMENT_1, &length)) {
    if (length == 0 || length > plov::files::kPatternLimit)
      call.refuse(XDFC_BAD_LENGTH);
    else if (call.writable(buffer, size, XDFC_BAD_ARGUMENT_2) &&
             call.writable(count, sizeof *count, XDFC_BAD_ARGUMENT_3))
      plov::files::list_file_mem(call, pattern, buffer, size, count);
  }
  return call.leave();
}
