#include "log/pa/crash_file.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include "xcsf.h"
#include "xdfc.h"
#include "xtr.h"

namespace plov::log::pa {
namespace {

constexpr char kTableName[] = "PA_CRASH_PATH";
constexpr char kDefaultDirectory[] = "/data/pa/crash/";
constexpr char kDefaultConsolePath[] = "/console/";
constexpr mode_t kDirectoryMode = 0777;  // whoever fails leaves its events here
constexpr size_t kPathSize = 4096;
constexpr int kNames = 100;  // a second of them
constexpr uint8_t kHundredths = 100;

// A path too long for its area is an error like the system's own.
bool fits(int length, size_t size) {
  if (length >= 0 && static_cast<size_t>(length) < size) return true;
  errno = ENAMETOOLONG;
  return false;
}

// The table's directory, else the one below the console's. False when it is too long.
bool find_directory(char (&directory)[kPathSize]) {
  static_assert(kPathSize >= XDFC_PATH_SIZE);
  uint32_t code = 0;
  xdfc_query_file_location(kTableName, directory, &code);
  bool found = true;
  if (code != 0) {
    xtr_trace("XP11PA T: got a dfc error. Hardcode the path");
    const char* const console = getenv("CONSOLE_PATH");
    found =
        fits(snprintf(directory, sizeof directory, "%s%s", console ? console : kDefaultConsolePath, kDefaultDirectory),
             sizeof directory);
  }
  xtr_trace("XP11PA F: path to write file to is %s", directory);
  return found;
}

xlog_timestamp time_now() {
  struct timeval now;
  if (gettimeofday(&now, nullptr) != 0) {
    xtr_trace("XP11PA F: error getting timestamp");
    return {};
  }
  return {static_cast<uint32_t>(now.tv_sec), static_cast<uint8_t>(now.tv_usec / 10000)};
}

xlog_timestamp next(xlog_timestamp time) {
  if (++time.hundredths < kHundredths) return time;
  return {time.seconds + 1, 0};
}

int make_directory(const char* directory) {
  const int rc = mkdir(directory, kDirectoryMode);
  if (rc == 0 || errno != ENOENT) return rc;
  // The log's own directory exists; the one between them is made by nobody else.
  char parent[kPathSize];
  const size_t length = strlen(directory);
  memcpy(parent, directory, length + 1);
  for (char* end = parent + length; end > parent && end[-1] == '/'; --end) end[-1] = '\0';
  char* const slash = strrchr(parent, '/');
  if (!slash) return rc;
  *slash = '\0';
  return mkdir(parent, kDirectoryMode) == 0 || errno == EEXIST ? mkdir(directory, kDirectoryMode) : rc;
}

bool prepare_directory(frame::Call& call, const char* directory) {
  xtr_trace("XP11PA F: make the directory");
  const int rc = make_directory(directory);
  const int error = errno;
  if (rc == 0 || error == EEXIST) return true;
  xtr_trace("XP11PA F: got error on makdir rc=%i", rc);
  xtr_trace("XP11PA F: got error on makdir errno=%i", error);
  return call.refuse(XP11_CRASH_DIRECTORY);
}

// False when the path is too long.
bool build_path(const char* directory, uint32_t return_code, xlog_timestamp time, char (&path)[kPathSize]) {
  char name[kCrashNameSize];
  crash_file_name(name, return_code, time);
  const bool whole = fits(snprintf(path, sizeof path, "%s%s", directory, name), sizeof path);
  xtr_trace("XP11PA F: file path is %s", path);
  xtr_trace("XP11PA F: file name is %s", name);
  return whole;
}

// Never through a link and never over another event's file: what has the name already is passed over.
FILE* create(const char* directory, uint32_t return_code, xlog_timestamp time, char (&path)[kPathSize]) {
  for (int i = 1;; ++i) {
    xtr_trace("XP11PA F: create the file");
    FILE* const file = fopen(path, "wxe");
    if (file || errno != EEXIST || i == kNames) return file;
    time = next(time);
    build_path(directory, return_code, time, path);
  }
}

void write_and_close(frame::Call& call, FILE* file, const char* path, const xlog_crash_file& content) {
  // Unbuffered: a full disk is a failed write, and the bytes arrive together.
  setvbuf(file, nullptr, _IONBF, 0);
  xtr_trace("XP11PA F: write the data");
  errno = 0;
  if (fwrite(&content, sizeof content, 1, file) == 1) {
    xtr_trace("XP11PA F: wrote the data");
  } else {
    const int error = errno;
    xtr_trace("XP11PA F:    error, fwrite() returned (errno=%i %s)", error, strerror(error));
    call.refuse(XP11_CRASH_WRITE);
  }
  xtr_trace("XP11PA F: close the file");
  if (fclose(file) != 0) {
    const int error = errno;
    xtr_trace("XP11PA F: error on close %i %s", error, strerror(error));
    call.refuse(XP11_CRASH_CLOSE);
  }
  // Half an event would be read as one.
  if (call.comprc() == XP11_CRASH_WRITE) unlink(path);
}

}  // namespace

// The name has two dots where a text of xp11_critical's two bytes and code would stand: the text was always emptied
// before it was used. Whoever collects crash files matches the dots. Do not fill it in.
void crash_file_name(char (&name)[kCrashNameSize], uint32_t return_code, const xlog_timestamp& now) {
  char seconds[11], hundredths[3];
  xcsf_long2char(seconds, now.seconds, 0);
  xcsf_hex2char(hundredths, &now.hundredths, 1);
  snprintf(name, sizeof name, "crash.jvm..0000%.4x.%s%s", return_code & 0xFFFF, seconds, hundredths);
}

xlog_crash_file crash_file_content(const xlog_event_identity& event) {
  return {event.eventid.classes,   {'|', '|'}, event.eventid.log_type,    {'|', '|'}, event.eventid.user, {'|', '|'},
          event.timestamp.seconds, {'|', '|'}, event.timestamp.hundredths};
}

void write_crash_file(frame::Call& call, const xlog_event_identity& event, uint32_t return_code) {
  char directory[kPathSize] = "", path[kPathSize];
  const bool found = find_directory(directory);
  const xlog_timestamp now = time_now();
  if (!found) {
    call.refuse(XP11_CRASH_DIRECTORY);
    return;
  }
  const bool whole = build_path(directory, return_code, now, path);
  if (!prepare_directory(call, directory)) return;
  FILE* const file = whole ? create(directory, return_code, now, path) : nullptr;
  if (file)
    write_and_close(call, file, path, crash_file_content(event));
  else
    call.refuse(XP11_CRASH_CREATE);
}

}  // namespace plov::log::pa
