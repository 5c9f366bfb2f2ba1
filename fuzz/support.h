// What the fuzz targets share.
#ifndef PLOV_FUZZ_SUPPORT_H
#define PLOV_FUZZ_SUPPORT_H

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <memory>

inline void require(bool holds) {
  if (!holds) abort();
}

// In memory of exactly its size, so that the sanitizer sees a read behind it.
inline std::unique_ptr<uint8_t[]> exact(const void* data, size_t size) {
  auto copy = std::make_unique<uint8_t[]>(size);
  if (size != 0) memcpy(copy.get(), data, size);
  return copy;
}

#endif
