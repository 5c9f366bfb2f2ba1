// The finished file beside the log. Room is never made by moving bytes in the live file: its new contents are written
// to path + ".new", then the live file's header gets the mark "prune in progress", then the new file takes the live
// one's name. Whatever a process leaves that dies on the way is one of these:
//
//   mark   ".new"      what it is                                     what the next open does
//   -      any         the image was not finished; nothing is lost    removes ".new"
//   set    complete    it only lacks its name                         renames it
//   set    -           the disk took no image                         goes on in the live file
#ifndef PLOV_LOG_MAINTAIN_IMAGE_H
#define PLOV_LOG_MAINTAIN_IMAGE_H

#include <stdint.h>

#include "log/interim.h"
#include "xlog.h"

namespace plov::log {

class Image {
 public:
  explicit Image(const char* session);
  ~Image();
  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;

  // Writes the image out, with the live file's owner. False: there is none, and nothing of it is left.
  bool write(FILE* live, const void* bytes, uint32_t size);

  // Takes up the image that a dead process completed for a file with this header.
  bool find_complete(const xlog_file_header& live, xlog_file_header* header);

  // Gives it the live file's name and makes its stream the current one. On failure all stays as it was.
  bool publish(xlog_err_interface* err);

 private:
  bool open();

  LogName name_;
  LogPath path_;
  Interim interim_;
  FILE* stream_ = nullptr;
};

// Of a process that died before it was complete.
void remove_unfinished_image(const char* path, const xlog_file_header& live);

}  // namespace plov::log

#endif
