// Log files made byte by byte, without the library: the writing side of the format as the tests understand it.
//
//   test::LogFile file;                                            // header and Log Info Log, as a new main log
//   uint32_t at = file.add({.eventid = {3, 1, 7}, .blocks = {test::stored(0x10, "text")}});
//   test::write_file(test::data_path("wexolog.log"), file.bytes());
#ifndef PLOV_TESTS_LOG_FILE_H
#define PLOV_TESTS_LOG_FILE_H

#include <stdint.h>

#include <string>
#include <vector>

#include "xlog_format.h"

namespace test {

// One block as it lies in the file.
struct Block {
  uint8_t id;
  std::string bytes;
};

Block stored(uint8_t id, const std::string& data);   // with the leading 0xFF
Block raw(uint8_t id, const std::string& data);      // bytes as they are: id 0, encoded bytes, logs without 0x0004
Block encoded(uint8_t id, const std::string& data);  // by literal codes only: decodes to `data`

struct Log {
  xlog_eventid eventid = {1, 1, 0};
  xlog_timestamp timestamp = {1000, 0};
  std::string name = "test event";  // cut to 12 bytes, padded with NUL
  uint16_t flags = XLOG_LOG_STORED_FORM;
  std::vector<Block> blocks = {};
};

class LogFile {
 public:
  enum Kind { kMain, kE4 };  // "e4" begins without a Log Info Log

  explicit LogFile(Kind kind = kMain, uint32_t created = 1);

  // Appends a log, links it in both chains and moves the file header on. Returns its offset.
  uint32_t add(const Log& log);

  // A log's fixed part and its block entries, to be read and damaged in place.
  xlog_log_info& info(uint32_t offset);
  xlog_block_info& block_info(uint32_t offset, unsigned index);

  // The file as it would lie on disk; `logs` is everything behind the header.
  std::string bytes() const;

  xlog_file_header header = {};
  std::string logs;
};

}  // namespace test

#endif
