// Files that are made under a name of their own beside a log and get the log's name when they are complete: a process
// that dies on the way leaves nothing that a later one takes for a damaged log.
#ifndef PLOV_LOG_INTERIM_H
#define PLOV_LOG_INTERIM_H

#include <stdint.h>
#include <stdio.h>
#include <sys/types.h>

#include "log/names.h"

namespace plov::log {

struct Interim {
  Interim(const char* real_path, const char* suffix) { snprintf(path, sizeof path, "%s%s", real_path, suffix); }
  char path[kPathSize + 8];
};

// Makes the empty file: 0600 from its first byte, never through a link. Whoever calls holds the log lock, so a file
// that is there already is a dead process's and goes. 0 or an errno.
int create_interim(const char* path);

// Opens exactly this path, by handing it to the file services as an explicit name.
int32_t open_stream(const char* path, const char* mode, FILE** stream, uint32_t* reason);

// Whose the log files are. False, traced, when the machine has no such user.
bool find_owner(uid_t* user, gid_t* group);

// Takes the "e4" file's own lock, waiting a while; without it the caller goes on. See xlog_open_file.
void lock_e4(const char* path, FILE* stream);

}  // namespace plov::log

#endif
