// One retrieval and its result, released at the end.
#ifndef PLOV_TESTS_RETRIEVAL_H
#define PLOV_TESTS_RETRIEVAL_H

#include <stdint.h>

#include <string>
#include <vector>

#include "xlog.h"

namespace test {

struct Retrieval : xlog_retrieve_block {
  explicit Retrieval(uint16_t wanted_options = XLOG_OPT_ALL_CLASSES, xlog_eventid wanted = {}, const char* file = "");
  ~Retrieval() { free(); }
  Retrieval(const Retrieval&) = delete;
  Retrieval& operator=(const Retrieval&) = delete;

  int32_t run() { return sysrc = xlog_retrieve(this, &comprc); }
  int32_t free() { return xlog_free(this, &free_comprc); }

  // The result as text, newest first: "user:id=data,id=data" for each log.
  std::vector<std::string> logs() const;

  int32_t sysrc = -1;
  uint32_t comprc = ~0u, free_comprc = ~0u;
};

// The event ids' user codes of a whole retrieval, newest first; what it failed with when it did.
std::vector<std::string> users(uint16_t options, xlog_eventid wanted, xlog_timestamp start = {},
                               xlog_timestamp end = {}, uint32_t maximum = 0);

}  // namespace test

#endif
