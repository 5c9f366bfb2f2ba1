#include "support/pages.h"

#include <stdlib.h>
#include <sys/mman.h>

namespace test {

Pages::Pages(size_t count, int protection) : count_(count) {
  void* area = mmap(nullptr, (count + 2) * kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (area == MAP_FAILED) abort();
  start_ = static_cast<uint8_t*>(area) + kPage;
  if (mprotect(start_, count * kPage, protection) != 0) abort();
}

Pages::~Pages() {
  munmap(start_ - kPage, (count_ + 2) * kPage);
}

void Pages::protect(size_t page, int protection) {
  if (mprotect(start_ + page * kPage, kPage, protection) != 0) abort();
}

}  // namespace test
