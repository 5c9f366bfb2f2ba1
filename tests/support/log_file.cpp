#include "support/log_file.h"

#include <string.h>

#include <algorithm>

namespace test {
namespace {

template <class T>
void append(std::string& to, const T& value) {
  to.append(reinterpret_cast<const char*>(&value), sizeof value);
}

}  // namespace

Block stored(uint8_t id, const std::string& data) {
  return {id, static_cast<char>(XLOG_STORED_MARK) + data};
}

Block raw(uint8_t id, const std::string& data) {
  return {id, data};
}

// Each byte is its own literal code (value + 1); no code ever names a pair.
Block encoded(uint8_t id, const std::string& data) {
  std::vector<unsigned> codes;
  for (unsigned char byte : data) codes.push_back(byte + 1u);
  codes.insert(codes.end(), 3 + (codes.size() + 1) % 2, 0);  // an end code in a whole group, whichever the parity
  std::string bytes("\x05\x01\x04\0\0\0\0\0\0\0\0\0", 12);
  for (size_t i = 0; i < codes.size(); i += 2) {
    bytes += static_cast<char>(codes[i] >> 4);
    bytes += static_cast<char>((codes[i] & 15) << 4 | codes[i + 1] >> 8);
    bytes += static_cast<char>(codes[i + 1]);
  }
  return {id, bytes};
}

LogFile::LogFile(Kind kind, uint32_t created) {
  header.max_file_size = kind == kMain ? 10240 : 2560;
  header.max_single_log_size = 1024;
  header.modify_block_size = 64;
  header.file_size = XLOG_FILE_HEADER_SIZE;
  header.file_flags = XLOG_FILE_UTC_OFFSET | XLOG_VERSION_CONTROL_FLAG;
  if (kind == kE4) {
    header.file_flags |= XLOG_FILE_SINGLE_STAGE;
    return;
  }
  add({.eventid = {0xFF, 0xFF, 0},
       .timestamp = {created, 0},
       .name = XLOG_LOG_INFO_NAME,
       .blocks = {stored(XLOG_UTCOFFSET_BLOCK_ID, std::string(4, '\0')),
                  stored(XLOG_LOG_INFO_BLOCK_ID, std::string("\1\0\1\0\0\0pqrl\0\0\0\0\0", 15))}});
}

uint32_t LogFile::add(const Log& log) {
  const uint32_t offset = header.file_size;
  xlog_log_info fixed = {};
  fixed.eventid = log.eventid;
  fixed.timestamp = log.timestamp;
  memcpy(fixed.event_name, log.name.data(), std::min<size_t>(log.name.size(), XLOG_NAME_SIZE));
  fixed.log_flags = log.flags;
  fixed.prev_log_offset = header.last_log_offset;
  fixed.prev_class_log_offset = header.class_last_log[log.eventid.classes];
  fixed.num_blocks = static_cast<uint16_t>(log.blocks.size());
  fixed.total_log_size = static_cast<uint32_t>(sizeof fixed + sizeof(xlog_block_info) * log.blocks.size());
  for (const Block& block : log.blocks) fixed.total_log_size += static_cast<uint32_t>(block.bytes.size());

  append(logs, fixed);
  for (const Block& block : log.blocks)
    append(logs, xlog_block_info{block.id, static_cast<uint16_t>(block.bytes.size())});
  for (const Block& block : log.blocks) logs += block.bytes;
  header.last_log_offset = header.class_last_log[log.eventid.classes] = offset;
  header.file_size += fixed.total_log_size;
  return offset;
}

xlog_log_info& LogFile::info(uint32_t offset) {
  return reinterpret_cast<xlog_log_info&>(logs.at(offset - XLOG_FILE_HEADER_SIZE));
}

xlog_block_info& LogFile::block_info(uint32_t offset, unsigned index) {
  return reinterpret_cast<xlog_block_info*>(&info(offset) + 1)[index];
}

std::string LogFile::bytes() const {
  return std::string(reinterpret_cast<const char*>(&header), sizeof header) + logs;
}

}  // namespace test
