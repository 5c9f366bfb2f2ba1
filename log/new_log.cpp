#include "log/new_log.h"

#include <string.h>

namespace plov::log {

NewLog::NewLog(const xlog_log_request& request) {
  xlog_log_info& info = header_.log_info;
  info.eventid = request.eventid;
  memcpy(info.event_name, request.event_name, XLOG_NAME_SIZE);
  info.log_flags = XLOG_LOG_STORED_FORM;
  if (request.flags & XLOG_PROBLEM_ANALYSIS_FLAG) info.log_flags |= XLOG_LOG_PROBLEM_ANALYSIS;
  if (request.flags & XLOG_DISPLAY_AS_ERROR_FLAG) info.log_flags |= XLOG_LOG_DISPLAY_AS_ERROR;
}

bool NewLog::add(uint8_t block_id, uint32_t size) {
  if (entries() == XLOG_MAX_BLOCKS) return false;
  header_.block_info[header_.log_info.num_blocks++] = {block_id, static_cast<uint16_t>(size)};
  header_.log_info.total_log_size += size;
  return true;
}

void NewLog::stored(uint32_t entry, uint32_t size) {
  header_.log_info.total_log_size += size - header_.block_info[entry].block_size;
  header_.block_info[entry].block_size = static_cast<uint16_t>(size);
}

void NewLog::complete() {
  header_.log_info.total_log_size += header_size();
}

void NewLog::link(const xlog_file_header& file, const xlog_timestamp& timestamp) {
  header_.log_info.timestamp = timestamp;
  header_.log_info.prev_log_offset = file.last_log_offset;
  header_.log_info.prev_class_log_offset = file.class_last_log[header_.log_info.eventid.classes];
}

void make_newest(xlog_file_header* file, const NewLog& log, uint32_t offset) {
  file->last_log_offset = offset;
  file->class_last_log[log.header().log_info.eventid.classes] = offset;
  file->file_size += log.total();
}

}  // namespace plov::log
