// From a log's name to its file. One place decides which path is checked, opened, given its mode, saved and removed.
#ifndef PLOV_LOG_NAMES_H
#define PLOV_LOG_NAMES_H

#include <stdint.h>

#include "xdfc.h"

namespace plov::log {

inline constexpr uint32_t kMaxShortName = 4;
inline constexpr uint32_t kPathSize = 4096;

// What a name says by itself.
struct LogName {
  enum class Form { short_name, bare_file, full_path };  // "abc", "!file", "!/dir/file"
  Form form;
  int32_t kind;           // XLOG_KIND_*: how a new file is laid out
  const char* looked_up;  // the name that the path table is asked for; for full_path the path itself
  const char* file;       // what is appended to the directory found
  const char* opened;     // as the open is traced: a full path keeps its "!"
  char built[16];         // "wexo" + short name + ".log"
  bool too_long;          // a short name of more than kMaxShortName characters

  LogName() = default;
  LogName(const LogName&) = delete;  // some of it points to `built`
};

// `session` must outlive the result. Pure.
void parse_name(const char* session, LogName* name);

// The directory found and the file's full path, "" when the table has no place for it or the path does not fit. Result
// and code are the look-up's (0 and 0 for a full path).
struct LogPath {
  int32_t sysrc;
  uint32_t code;
  char directory[XDFC_PATH_SIZE];
  char path[kPathSize];
};
void locate(const LogName& name, LogPath* path);

}  // namespace plov::log

#endif
