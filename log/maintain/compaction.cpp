#include "log/maintain/compaction.h"

#include "log/maintain/failed.h"
#include "log/utc_offset.h"
#include "xtr.h"

namespace plov::log {
namespace {

struct PLOV_PACKED PrunedLog {
  xlog_log_info info;
  xlog_block_info block_info;
  xlog_utc_block utc;
};
static_assert(sizeof(PrunedLog) == kPrunedLogSize);

constexpr xlog_eventid kLogInfoLog = {0xFF, 0xFF, 0};
constexpr xlog_eventid kPrunedLogs = {0xFF, 1, 0};

bool same(const xlog_eventid& a, const xlog_eventid& b) {
  return memcmp(&a, &b, sizeof a) == 0;
}

unsigned priority_of(const xlog_log_info& info) {
  return (info.log_flags & XLOG_LOG_PRIORITY_MASK) >> XLOG_LOG_PRIORITY_SHIFT;
}

}  // namespace

Compaction::Compaction(const xlog_file_header& header, LoadedFile& file, uint32_t end, xlog_err_interface* err)
    : header_(header), file_(file), end_(end), err_(err) {
  header_.file_size = XLOG_FILE_HEADER_SIZE;
  header_.last_log_offset = 0;
  memset(header_.class_last_log, 0, sizeof header_.class_last_log);
  header_.file_flags &= static_cast<uint16_t>(~XLOG_FILE_PRUNE_IN_PROGRESS);
}

// The header of a log of a walk. A log that is said to pass the end of the data is cut off like one whose header is.
bool Compaction::load(uint32_t offset, xlog_log_info* info, uint16_t error_code, uint16_t zero_code) {
  const auto short_code = static_cast<uint16_t>(error_code + 1);
  if (file_.read_error() != 0) return failed(err_, error_code, static_cast<uint32_t>(file_.read_error()));
  if (!file_.header(offset, info)) return failed(err_, short_code, offset < file_.size() ? file_.size() - offset : 0);
  if (!possible_length(*info)) {
    if (info->total_log_size == 0 && zero_code == XLOG_ERR_ROOM_NO_LENGTH)
      xtr_trace("XLOG   F: log_info->total_log_size is zero");
    return failed(err_, zero_code, offset);
  }
  if (info->total_log_size > end_ - offset) return failed(err_, short_code, offset);
  return true;
}

bool Compaction::mark(xlog_stage_result* amounts) {
  int32_t* const left = amounts->bytes_to_delete;
  if (left[0] == 0) return true;
  xlog_log_info info;
  for (uint32_t offset = XLOG_FILE_HEADER_SIZE;
       offset < end_ && (left[0] > 0 || left[1] > 0 || left[2] > 0 || left[3] > 0); offset += info.total_log_size) {
    xtr_trace("XLOG   D: reading log header DD");
    if (!load(offset, &info, XLOG_ERR_ROOM_MARK_SEEK, XLOG_ERR_ROOM_MARK_NO_LENGTH)) return false;
    xtr_trace("XLOG   D: log flags = %x", info.log_flags);
    if (info.log_flags == XLOG_LOG_DELETED) continue;
    const unsigned priority = priority_of(info);
    switch (priority) {
      case 0:
        xtr_trace("XLOG   D: priority 0  %x", info.log_flags);
        break;
      case 1:
        xtr_trace("XLOG   D: priority 1  %x", info.log_flags);
        break;
      case 2:
        xtr_trace("XLOG   D: priority 2  %x", info.log_flags);
        break;
      default:
        xtr_trace("XLOG   D: priority 3  %x", info.log_flags);
        break;
    }
    // Priority 0 goes whether or not its own amount is used up; only what tells of the file itself stays.
    const bool goes = priority == 0 ? !same(info.eventid, kLogInfoLog) : left[priority] > 0;
    if (!goes) continue;
    file_.set_flags(offset, XLOG_LOG_DELETED);
    left[priority] -= static_cast<int32_t>(info.total_log_size);
  }
  return true;
}

void Compaction::enter(uint8_t event_class, uint32_t offset) {
  header_.last_log_offset = offset;
  header_.class_last_log[event_class] = offset;
}

// Up to the first deleted log every log stays as it is.
bool Compaction::find_start(uint32_t* start) {
  uint32_t offset = XLOG_FILE_HEADER_SIZE;
  for (xlog_log_info info; offset < end_; offset += info.total_log_size) {
    xtr_trace("XLOG   D: reading log header CC");
    if (!load(offset, &info, XLOG_ERR_ROOM_START_SEEK, XLOG_ERR_ROOM_NO_LENGTH)) return false;
    if (info.log_flags == XLOG_LOG_DELETED) break;
    // The end is what the newest log says it is: what stays must be there, or the finished file would pass its memory.
    if (offset + uint64_t{info.total_log_size} > file_.size())
      return failed(err_, XLOG_ERR_ROOM_START_SHORT, file_.size() - offset);
    enter(info.eventid.classes, offset);
  }
  *start = offset;
  return true;
}

// The event that stands for a run of deleted logs. It always has room: a run is no shorter than its short form.
void Compaction::note_pruning(const xlog_timestamp& last_deleted, uint32_t run) {
  xtr_trace("XLOG   D: writing out event indicating pruning");
  const bool with_utc = (header_.file_flags & XLOG_FILE_UTC_OFFSET) && run >= kPrunedLogSize;
  PrunedLog log = {};
  log.info.total_log_size = with_utc ? kPrunedLogSize : kPrunedLogBareSize;
  log.info.eventid = kPrunedLogs;
  log.info.timestamp = last_deleted;
  memcpy(log.info.event_name, "pruned logs", sizeof "pruned logs");
  log.info.prev_log_offset = header_.last_log_offset;
  log.info.prev_class_log_offset = header_.class_last_log[kPrunedLogs.classes];
  if (with_utc) {
    log.info.log_flags = XLOG_LOG_STORED_FORM;
    log.info.num_blocks = 1;
    log.block_info = {XLOG_UTCOFFSET_BLOCK_ID, sizeof log.utc};
    log.utc = utc_block(last_deleted.seconds);
  }
  xtr_trace("XLOG   D: writing pruned log");
  memcpy(file_.bytes() + write_, &log, log.info.total_log_size);
  enter(kPrunedLogs.classes, write_);
  write_ += log.info.total_log_size;
}

bool Compaction::close_gaps() {
  uint32_t read;
  if (!find_start(&read)) return false;
  first_moved_ = write_ = read;
  uint32_t run = 0;  // bytes of the deleted logs just before `read`
  xlog_timestamp last_deleted = {};
  for (xlog_log_info info; read < end_; read += info.total_log_size) {
    xtr_trace("XLOG   D: reading log header FF, current_read_ptr = %d, file_size = %d", read, end_);
    if (!load(read, &info, XLOG_ERR_ROOM_MOVE_SEEK, XLOG_ERR_ROOM_NO_LENGTH)) return false;
    if (info.log_flags == XLOG_LOG_DELETED) {
      xtr_trace("XLOG   D: Pruning log");
      last_deleted = info.timestamp;
      run += info.total_log_size;
      continue;
    }
    if (run != 0) note_pruning(last_deleted, run);
    run = 0;
    const auto data = static_cast<uint32_t>(sizeof info + info.num_blocks * sizeof(xlog_block_info));
    xtr_trace("XLOG   D: reading log data, log_offset = %d", read + data);
    if (read + uint64_t{info.total_log_size} > file_.size())
      return failed(err_, XLOG_ERR_ROOM_DATA_SHORT, file_.size() - read);
    info.log_flags &= static_cast<uint16_t>(~XLOG_LOG_PRIORITY_MASK);
    info.prev_log_offset = header_.last_log_offset;
    info.prev_class_log_offset = header_.class_last_log[info.eventid.classes];
    xtr_trace("XLOG   D: writing log header");
    xtr_trace("XLOG   D: writing log data");
    memmove(file_.bytes() + write_, file_.bytes() + read, info.total_log_size);
    memcpy(file_.bytes() + write_, &info, sizeof info);
    enter(info.eventid.classes, write_);
    write_ += info.total_log_size;
  }
  header_.file_size = write_;
  return true;
}

}  // namespace plov::log
