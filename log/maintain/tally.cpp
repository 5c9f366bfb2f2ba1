#include "log/maintain/tally.h"

#include <algorithm>

#include "log/maintain/failed.h"
#include "log/maintain/retention.h"

namespace plov::log {
namespace {

bool tally_class(uint8_t event_class, uint32_t newest, const xlog_configuration& configuration, LoadedFile& file,
                 uint32_t file_size, xlog_err_interface* err, Tally* tally) {
  if (newest < XLOG_FILE_HEADER_SIZE || newest >= file_size) return failed(err, XLOG_ERR_ROOM_CLASS_START, event_class);
  const Retention retention = retention_of(event_class, configuration);
  uint32_t counts[256] = {};
  for (uint32_t offset = newest; offset != 0;) {
    xlog_log_info info;
    if (!file.header(offset, &info)) return failed(err, XLOG_ERR_ROOM_TALLY_SHORT, offset);
    // A link that leads out of the class leads into other logs' data, where nothing may be marked.
    if (info.eventid.classes != event_class) return failed(err, XLOG_ERR_ROOM_CLASS_LINK, offset);
    const Retention::Rule& rule = retention.types[info.eventid.log_type];
    if (info.log_flags == XLOG_LOG_DELETED) {
      tally->deleted += info.total_log_size;
    } else if (++counts[info.eventid.log_type] > rule.keep) {
      tally->deleted += info.total_log_size;
      file.set_flags(offset, XLOG_LOG_DELETED);
    } else {
      if (rule.priority < kHighestPriority) tally->kept[rule.priority] += info.total_log_size;
      const auto priority = static_cast<uint16_t>(rule.priority << XLOG_LOG_PRIORITY_SHIFT);
      const auto flags = static_cast<uint16_t>((info.log_flags & ~XLOG_LOG_PRIORITY_MASK) | priority);
      // Priority 0 changes nothing: a log that has bits keeps them.
      if (rule.priority != 0 && flags != info.log_flags) file.set_flags(offset, flags);
    }
    const uint32_t link = info.prev_class_log_offset;
    if (link >= offset || (link != 0 && link < XLOG_FILE_HEADER_SIZE))
      return failed(err, XLOG_ERR_ROOM_CLASS_LINK, offset);
    offset = link;
  }
  return true;
}

}  // namespace

bool tally_logs(const xlog_file_header& header, const xlog_configuration& configuration, LoadedFile& file,
                xlog_err_interface* err, Tally* tally) {
  for (unsigned event_class = 0; event_class < 256; ++event_class) {
    const uint32_t newest = header.class_last_log[event_class];
    if (newest != 0 &&
        !tally_class(static_cast<uint8_t>(event_class), newest, configuration, file, header.file_size, err, tally))
      return false;
  }
  return true;
}

xlog_stage_result spread(const Tally& tally, uint16_t max_file_size) {
  const uint64_t wanted = uint64_t{max_file_size} * (XLOG_SIZE_UNIT / 2);
  uint64_t rest = tally.deleted < wanted ? wanted - tally.deleted : 0;
  xlog_stage_result result = {};
  for (unsigned priority = 0; priority < kHighestPriority; ++priority) {
    const uint64_t share = std::min(rest, tally.kept[priority]);
    result.bytes_to_delete[priority] = static_cast<int32_t>(share);
    rest -= share;
  }
  result.bytes_to_delete[kHighestPriority] = static_cast<int32_t>(rest);
  return result;
}

}  // namespace plov::log
