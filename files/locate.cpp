// The look-up of a file's directory in the path table.
#include <errno.h>
#include <fnmatch.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string_view>

#include "files/full_path.h"
#include "files/path_table.h"
#include "files/path_table_load.h"
#include "frame/call.h"
#include "xdfc.h"
#include "xtr.h"

namespace plov::files {
namespace {

constexpr uint32_t kNameLimit = 255;
constexpr mode_t kDirectoryMode = 02770;  // the group's members share what lies in it

// The first entry that matches. Result false: none does; `empty` says that there are no entries at all.
bool find_entry(const char* name, TableEntry& entry, bool& empty) {
  empty = true;
  for (TableWalk walk(xdfc_file_req); walk.next(entry); empty = false)
    if (fnmatch(entry.pattern, name, FNM_NOESCAPE) == 0) return true;
  return false;
}

// A directory that cannot be made does not fail the look-up: opening the file will tell.
void create_directory(const char* directory) {
  xtr_trace("XDFCQFLD: Create directory flag is on");
  char path[XDFC_PATH_SIZE];
  snprintf(path, sizeof path, "%s", directory);
  if (path[0] != '\0') path[strlen(path) - 1] = '\0';
  errno = 0;
  const int rc = mkdir(path, kDirectoryMode);
  const int error = errno;
  xtr_trace("XDFCQFLF: mkdir for [%s] with mode %04.04X; errno = %d rc = %d", path, kDirectoryMode, error, rc);
  if (rc == 0) {
    xtr_trace("XDFCQFLD: mkdir for [%s] was successful; issuing chmod", path);
    chmod(path, kDirectoryMode);  // the umask has narrowed the mode
  } else if (error == EEXIST) {
    xtr_trace("XDFCQFLD: mkdir for [%s] failed; directory already exists", path);
  } else {
    xtr_trace("XDFCQFLD: mkdir for [%s] failed; errno=%d", path, error);
  }
}

// Looks for `name` in one element of PATH and leaves the directory in `path`. What does not fit into the buffers counts
// as not found.
bool found_in(std::string_view element, const char* name, char* path) {
  char directory[kFullPathSize], full_name[kFullPathSize];
  if (element.size() >= sizeof directory) return false;
  memcpy(directory, element.data(), element.size());
  directory[element.size()] = '\0';
  const int length = snprintf(full_name, sizeof full_name, "%s/%s", directory, name);
  xtr_trace("XDFCQFLD:    searching path [%s] for [%s].", directory, name);
  if (static_cast<size_t>(length) >= sizeof full_name || access(full_name, F_OK) != 0) return false;

  char* const slash = strrchr(full_name, '/');
  // "/" as first or second character is not taken for a directory's end: for an element "." or "/" the whole name is
  // the result. Kept as it is; such elements do not occur in a console's PATH.
  const bool cut = slash > full_name + 1;
  const size_t kept = cut ? static_cast<size_t>(slash + 1 - full_name) : strlen(full_name);
  if (kept >= XDFC_PATH_SIZE) return false;
  xtr_trace("XDFCQFLD: file found. szFQName is '%s'", full_name);
  memcpy(path, full_name, kept);
  path[kept] = '\0';
  return true;
}

// `path` holds a ";": the file's directory is the first of PATH that has it, else what stands before the ";".
void search_along_path(const char* name, char* path) {
  const char* const value = getenv("PATH");
  // An empty PATH is not one without a hit: the result stays as it is, ";" included. Callers depend on it.
  if (value && value[0] == '\0') return;
  for (const char* start = value; start;) {
    const char* const colon = strchr(start, ':');
    if (found_in(colon ? std::string_view(start, static_cast<size_t>(colon - start)) : start, name, path)) {
      xtr_trace("XDFCQFLF: Final Path is [%s]", path);
      return;
    }
    start = colon ? colon + 1 : nullptr;
  }
  xtr_trace("XDFCQFLD: file not found along path. Using first path.");
  char* const end = strchr(path, ';');
  const bool closed = end > path && end[-1] == '/';
  strcpy(end, closed ? "" : "/");
  xtr_trace("XDFCQFLF: Final Path is [%s]", path);
}

void locate(frame::Call& call, const char* name, char* path) {
  xtr_trace("XDFCQFLF:    Looking for [%s]", name);
  if (const uint32_t failure = load_path_table(); failure != 0) {
    call.refuse(failure);
    return;
  }
  TableEntry entry;
  bool empty;
  if (!find_entry(name, entry, empty)) {
    // Callers test comprc: a table without a match answers with the grade of an unusable comprc, and always has.
    call.set_comprc(XDFC_NO_ENTRY);
    call.set_sysrc(empty ? frame::kRefused : static_cast<uint32_t>(FNM_NOMATCH));
    return;
  }
  const size_t length = strlen(entry.directory);
  if (length >= XDFC_PATH_SIZE) {
    call.refuse(ENAMETOOLONG);
    return;
  }
  memcpy(path, entry.directory, length + 1);
  xtr_trace("XDFCQFLF:    Path is [%s]", path);
  if (entry.create_directory) create_directory(entry.directory);
  if (strchr(path, ';')) search_along_path(name, path);
}

}  // namespace
}  // namespace plov::files

int32_t xdfc_query_file_location(const char* name, char* path, uint32_t* comprc) {
  plov::frame::Call call("xdfc_query_file_location", "XDFCQFLT: -> xdfc_query_file_location",
                         "XDFCQFLT: <- xdfc_query_file_location", comprc);
  uint32_t length = 0;
  if (call.text(name, XDFC_BAD_ARGUMENT_1, &length)) {
    if (length == 0 || length > plov::files::kNameLimit)
      call.refuse(XDFC_BAD_LENGTH);
    else if (call.writable(path, XDFC_PATH_SIZE, XDFC_BAD_ARGUMENT_2))
      plov::files::locate(call, name, path);
  }
  return call.leave();
}
