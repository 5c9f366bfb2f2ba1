// What the calling thread has traced, from the ring.
#ifndef PLOV_TESTS_TRACED_H
#define PLOV_TESTS_TRACED_H

#include <string>

#include "xtr.h"

namespace test {

inline std::string traced() {
  std::string buffer(65536, '\0');
  uint32_t count = 0, code;
  xtr_fetch_tid(buffer.data(), 65536, 1, &count, &code);
  return buffer.substr(0, count);
}

}  // namespace test

#endif
