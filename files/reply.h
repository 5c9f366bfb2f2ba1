// A text of unknown length in one block of the debug allocator, as the caller gets it in the end.
#ifndef PLOV_FILES_REPLY_H
#define PLOV_FILES_REPLY_H

#include <stddef.h>
#include <stdint.h>

#include <string_view>

#include "frame/memory.h"

namespace plov::files {

class Reply {
 public:
  // Adds at the end, at the front. Result 0, XDFC_LIST_NO_MEMORY for the first block or XDFC_LIST_GROW_FAILED; what
  // there was stays. The block doubles, so the cost of a text is in proportion to its length.
  uint32_t append(std::string_view text);
  uint32_t prepend(std::string_view text);

  bool empty() const { return length_ == 0; }

  // The text with its NUL, cut to its size: the caller's to free with the debug allocator. Null when nothing was added.
  char* release();

 private:
  uint32_t reserve(size_t added);

  frame::Owned<char> text_;
  size_t length_ = 0;
  size_t capacity_ = 0;
};

}  // namespace plov::files

#endif
