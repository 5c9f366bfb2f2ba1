// Requests and retrievals in a line or two.
#ifndef PLOV_TESTS_LOG_CALLS_H
#define PLOV_TESTS_LOG_CALLS_H

#include <string>
#include <vector>

#include "support/codes.h"
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

// The three that change a log in place.
template <class Request, class Call>
Codes in_place(Call call, const xlog_event_identity& log, Request request = {}) {
  request.identity = log;
  return codes(call, &request);
}
inline Codes update_log(const xlog_event_identity& log, const std::string& data) {
  return in_place<xlog_update_request>(xlog_update_log, log,
                                       {0, {}, 0, static_cast<uint32_t>(data.size()), "", data.data()});
}
inline Codes update_type(const xlog_event_identity& log, uint8_t type) {
  return in_place<xlog_update_type_request>(xlog_update_type, log, {0, {}, type, ""});
}
inline Codes mark_for_delete(const xlog_event_identity& log) {
  return in_place<xlog_mark_request>(xlog_mark_log_for_delete, log);
}

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
