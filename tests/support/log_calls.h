// Requests and retrievals in a line or two.
#ifndef PLOV_TESTS_LOG_CALLS_H
#define PLOV_TESTS_LOG_CALLS_H

#include <string>
#include <vector>

#include "support/log_file.h"
#include "xlog.h"

namespace test {

struct Result {
  int sysrc;
  uint32_t comprc;
  xlog_eventid eventid;  // as the request holds it afterwards
  xlog_timestamp timestamp;
  bool operator==(std::pair<int, uint32_t> codes) const { return sysrc == codes.first && comprc == codes.second; }
};

struct Event {
  uint8_t classes = 0x33;
  uint8_t type = 1;
  uint16_t user = 2;
  std::string name = "test event  ";
  uint16_t flags = 0;
  std::string target = {};
  std::vector<Block> blocks = {};
};

Result record(const Event& event);

struct ReadLog {
  xlog_eventid eventid;
  xlog_timestamp timestamp;
  std::string name;
  uint16_t flags;
  std::vector<Block> blocks = {};
};

// Every log of a file, newest first, in plain values.
std::vector<ReadLog> read_all(const std::string& target = "");

void PrintTo(const Result& result, std::ostream* out);

}  // namespace test

#endif
