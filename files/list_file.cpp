// A listing of the files that match, written into a file of fixed columns.
#include <errno.h>
#include <fnmatch.h>
#include <stdio.h>
#include <unistd.h>

#include "files/directory.h"
#include "files/list_split.h"
#include "files/listing_line.h"
#include "files/stream_error.h"
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

// At offset 0, where it needs no room on a full disk, and past the stream, whose position is unknown after a failure.
bool xdfc_update_nof_line(FILE* listing, uint32_t count) {
  const ListingCount line = count_line(count);
  errno = 0;
  return pwrite(fileno(listing), &line, sizeof line, 0) == static_cast<ssize_t>(sizeof line);
}

// One stat, which opens nothing: no permission to read is needed, and a FIFO hangs nobody. A file that has vanished, or
// a link to nowhere, keeps its name.
void xdfc_add_file_entry(frame::Call& call, FILE* listing, int directory, const char* name) {
  struct stat status;
  const bool known = fstatat(directory, name, &status, 0) == 0;
  if (!known) xtr_trace("XDFCLFMF: open error in list_file for [%s],errno is %d", name, errno);
  ListingLine line;
  xdfc_fill_data_struct(line, name, known ? &status : nullptr);
  errno = 0;
  if (fwrite(&line, sizeof line, 1, listing) == 1) return;
  const uint32_t error = stream_error(errno);
  xtr_trace("XDFCAFEF: error on xdfc_write in add_file_entry. src=%d, crc=%d", frame::kRefused, error);
  call.refuse(error);
}

// Opened for the first file that matches: a pattern without any makes no listing and leaves an older one alone.
FILE* open_listing(frame::Call& call, const char* name) {
  FILE* listing = nullptr;
  uint32_t code = 0;
  const int32_t result = xdfc_search_file_open2(name, "w", &listing, &code);
  if (result != 0) {
    call.fail(static_cast<uint32_t>(result), code);
    return nullptr;
  }
  const ListingCount line = count_line(1);
  errno = 0;
  if (fwrite(&line, sizeof line, 1, listing) != 1) call.refuse(stream_error(errno));
  return listing;
}

// Whatever ended the walk, the count line tells how many files it had met. A full disk shows when the stream is
// emptied.
void finish_listing(frame::Call& call, FILE* listing, uint32_t count) {
  errno = 0;
  if (fflush(listing) != 0) call.refuse(stream_error(errno));
  if (!xdfc_update_nof_line(listing, count)) call.refuse(stream_error(errno));
  errno = 0;
  if (fclose(listing) != 0) call.refuse(stream_error(errno));
}

void list_file(frame::Call& call, const char* pattern, const char* listfile) {
  ListPath path;
  if (!split(call, pattern, path, no_working_directory)) return;
  Directory directory(path.directory);
  if (!directory.is_open()) {
    xtr_trace("XDFCLF F:    opendir failed with errno of %d", directory.error());
    call.refuse(static_cast<uint32_t>(directory.error()));
    return;
  }
  FILE* listing = nullptr;
  uint32_t count = 0;
  while (call.ok()) {
    const struct dirent* const entry = directory.next();
    if (!entry) break;
    if (fnmatch(path.file, entry->d_name, FNM_NOESCAPE) != 0) continue;
    if (++count == 1) listing = open_listing(call, listfile);
    if (call.ok()) xdfc_add_file_entry(call, listing, directory.descriptor(), entry->d_name);
  }
  if (call.ok() && directory.error() != 0) {
    xtr_trace("XDFCLF F: readdir failed with errno of %d", directory.error());
    call.refuse(static_cast<uint32_t>(directory.error()));
  }
  if (listing) finish_listing(call, listing, count);
  if (call.ok() && count == 0) {
    xtr_trace("XDFCLF F:    no such file or path");
    call.refuse(XDFC_NO_ENTRY);
  }
}

}  // namespace
}  // namespace plov::files

int32_t xdfc_list_file(const char* pattern, const char* listfile, uint32_t* comprc) {
  plov::frame::Call call("xdfc_list_file", "XDFCLF T: -> xdfc_list_file", "XDFCLF T: <- xdfc_list_file", comprc);
  uint32_t length = 0;
  if (call.text(pattern, XDFC_BAD_ARGUMENT_1, &length)) {
    if (length == 0 || length > plov::files::kPatternLimit)
      call.refuse(XDFC_BAD_LENGTH);
    else if (call.text(listfile, XDFC_BAD_ARGUMENT_2))
      plov::files::list_file(call, pattern, listfile);
    xtr_trace("XDFCLF F:    search name=[%s], sysrc=%X, comprc=%X", pattern, call.sysrc(), call.comprc());
  }
  return call.leave();
}
