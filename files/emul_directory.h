// What both remote emulations do first: find the directory that a request means, whatever its case, and read it.
#ifndef PLOV_FILES_EMUL_DIRECTORY_H
#define PLOV_FILES_EMUL_DIRECTORY_H

#include <dirent.h>

#include <span>

#include "files/full_path.h"
#include "files/list_split.h"
#include "files/reply.h"
#include "frame/call.h"
#include "frame/memory.h"

namespace plov::files {

class EmulatedDirectory {
 public:
  EmulatedDirectory() = default;
  ~EmulatedDirectory();
  EmulatedDirectory(const EmulatedDirectory&) = delete;
  EmulatedDirectory& operator=(const EmulatedDirectory&) = delete;

  // False after a failure: ENAMETOOLONG, or the directory cannot be read (XDFC_LIST_NO_DIRECTORY, with a file part
  // XDFC_LIST_NO_PATH) or has not one entry (XDFC_LIST_EMPTY).
  bool open(frame::Call& call, const ListPath& request);

  const char* path() const { return path_; }
  const char* file() const { return file_; }       // the pattern; "" means every entry
  bool whole() const { return file_[0] == '\0'; }  // no pattern
  bool totalled() const { return totalled_; }      // the request was for a directory, or for all of its files

  // Sorted by name, "." and ".." among them.
  std::span<struct dirent*> entries() const { return {entries_.get(), count_}; }

 private:
  char path_[kFullPathSize];
  const char* file_ = "";
  bool totalled_ = false;
  frame::Owned<struct dirent*> entries_;
  size_t count_ = 0;
};

bool is_dot_or_dot_dot(const char* name);

// Both emulations: takes the pattern apart, opens the directory, has `list` fill the reply. What a failed listing had
// until then is the caller's too. Null when there is nothing.
char* emulate(frame::Call& call, const char* pattern, uint32_t (*no_working_directory)(int error),
              void (*list)(frame::Call& call, Reply& reply, const EmulatedDirectory& directory));

}  // namespace plov::files

#endif
