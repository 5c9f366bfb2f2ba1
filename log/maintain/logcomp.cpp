#include <string.h>

#include "log/maintain/make_room.h"
#include "log/utc_offset.h"

namespace plov::log {
namespace {

constexpr xlog_eventid kEvent = {0, 0, 797};
constexpr char kName[XLOG_NAME_SIZE] = "logcomp";

struct PLOV_PACKED Number {
  uint8_t mark;
  uint32_t value;
};

}  // namespace

Logcomp::Logcomp(const xlog_file_header& file, uint32_t now) {
  const Number number = {XLOG_STORED_MARK, 1};
  const uint8_t no_text[] = {XLOG_STORED_MARK, '\0'};
  const xlog_utc_block utc = utc_block(now);
  struct {
    xlog_block_info info;
    const void* data;
  } blocks[] = {{{XLOG_UTCOFFSET_BLOCK_ID, sizeof utc}, &utc},
                {{XLOG_SYSTEM_EVENT_BLOCK_ID, sizeof number}, &number},
                {{XLOG_LOG_INFO_BLOCK_ID, sizeof no_text}, no_text}};
  const bool with_utc = file.file_flags & XLOG_FILE_UTC_OFFSET;
  const uint32_t first = with_utc ? 0 : 1;

  xlog_log_info info = {};
  info.eventid = kEvent;
  info.timestamp.seconds = now;
  memcpy(info.event_name, kName, sizeof kName);
  info.log_flags = XLOG_LOG_STORED_FORM;
  info.prev_log_offset = file.last_log_offset;
  info.prev_class_log_offset = file.class_last_log[kEvent.classes];
  info.num_blocks = static_cast<uint16_t>(3 - first);
  header_size_ = static_cast<uint32_t>(sizeof info + info.num_blocks * sizeof(xlog_block_info));
  event_size_ = header_size_;
  for (uint32_t i = first; i < 3; ++i) {
    memcpy(bytes_ + sizeof info + (i - first) * sizeof(xlog_block_info), &blocks[i].info, sizeof(xlog_block_info));
    memcpy(bytes_ + event_size_, blocks[i].data, blocks[i].info.block_size);
    event_size_ += blocks[i].info.block_size;
  }
  info.total_log_size = event_size_;
  memcpy(bytes_, &info, sizeof info);
}

void Logcomp::enter(xlog_file_header* file) const {
  file->last_log_offset = file->class_last_log[kEvent.classes] = file->file_size;
  file->file_size += event_size_;
}

bool is_logcomp(const xlog_log_info& info) {
  return memcmp(&info.eventid, &kEvent, sizeof kEvent) == 0 && memcmp(info.event_name, kName, sizeof kName) == 0;
}

}  // namespace plov::log
