#include "files/reply.h"

#include <string.h>

#include <algorithm>

#include "xdfc.h"
#include "xtr.h"

namespace plov::files {
namespace {

constexpr size_t kFirstSize = 4096;

char* resize(char* block, size_t size) {
  return static_cast<char*>(plovmemdebug_realloc(block, size, __FILE__, __LINE__));
}

}  // namespace

uint32_t Reply::reserve(size_t added) {
  const size_t needed = length_ + added + 1;
  if (needed <= capacity_) return 0;
  const size_t size = std::max({needed, 2 * capacity_, kFirstSize});
  char* const block = resize(text_.get(), size);
  if (!block) {
    if (!text_) return XDFC_LIST_NO_MEMORY;
    xtr_trace("XDFCXRMF:    realloc failed");
    return XDFC_LIST_GROW_FAILED;
  }
  (void)text_.release();  // moved
  text_.reset(block);
  capacity_ = size;
  return 0;
}

uint32_t Reply::append(std::string_view text) {
  if (const uint32_t failure = reserve(text.size()); failure != 0) return failure;
  memcpy(text_.get() + length_, text.data(), text.size());
  length_ += text.size();
  text_.get()[length_] = '\0';
  return 0;
}

uint32_t Reply::prepend(std::string_view text) {
  if (const uint32_t failure = reserve(text.size()); failure != 0) return failure;
  memmove(text_.get() + text.size(), text_.get(), length_);
  memcpy(text_.get(), text.data(), text.size());
  length_ += text.size();
  text_.get()[length_] = '\0';
  return 0;
}

char* Reply::release() {
  if (char* const cut = text_ ? resize(text_.get(), length_ + 1) : nullptr) {
    (void)text_.release();
    return cut;
  }
  return text_.release();
}

}  // namespace plov::files
