#include "log/retrieve/walk.h"

#include "log/retrieve/log_header.h"

namespace plov::log {
namespace {

// Where the walk begins; 0 when there is nothing to walk.
Failure choose_start(const Criteria& criteria, const xlog_file_header& file_header, uint32_t* offset) {
  const uint32_t file_size = file_header.file_size;
  if (criteria.options & XLOG_OPT_ALL_CLASSES) {
    *offset = file_header.last_log_offset;
    return *offset == 0 || *offset < file_size ? Failure{} : damaged(XLOG_RETRIEVE_NO_START, *offset);
  }
  const uint8_t wanted = criteria.eventid.classes;
  *offset = file_header.class_last_log[wanted];
  // A class without logs is nobody's damage, so the error handler, which would replace the file, is not told.
  if (*offset == 0 || *offset == file_size) return {2, XLOG_RETRIEVE_NO_START, XLOG_LEVEL_NONE, wanted};
  return *offset < file_size ? Failure{} : damaged(XLOG_RETRIEVE_NO_START, wanted);
}

bool wanted_log(const Criteria& criteria, const xlog_log_info& info, xlog_timestamp* timestamp) {
  const bool in_time = xlog_match_time(criteria.options, &criteria.start, &criteria.end, timestamp);
  return in_time && info.log_flags != XLOG_LOG_DELETED &&
         xlog_match_eventid(criteria.options, &criteria.eventid, &info.eventid);
}

}  // namespace

Failure collect_logs(const Criteria& criteria, const xlog_file_header& file_header, Window& window, Expander& expander,
                     Found* found) {
  const bool all_classes = criteria.options & XLOG_OPT_ALL_CLASSES;
  const bool stops_on_time = !(criteria.options & XLOG_OPT_EXACT_TIME);
  xlog_log_entry** tail = &found->entries;
  uint32_t limit = file_header.file_size;
  uint32_t offset;
  if (Failure failure = choose_start(criteria, file_header, &offset)) return failure;

  for (bool done = false; offset != 0 && !done;) {
    xlog_log_header header;
    const Bytes bytes = window.header(offset, sizeof header, limit);
    if (Failure failure = load_log_header(bytes, offset, file_header.file_size, &header)) return failure;
    const xlog_log_info& info = header.log_info;

    xlog_timestamp timestamp = info.timestamp;
    if (wanted_log(criteria, info, &timestamp)) {
      OwnedEntry entry;
      if (Failure failure = build_entry(header, timestamp, offset, limit, window, expander, &entry)) return failure;
      if (!criteria.patterns || xlog_match_pattern(criteria.patterns, entry->blocks)) {
        if (!criteria.all_blocks) keep_blocks(entry.get(), criteria.block_ids);
        *tail = entry.release();
        tail = &(*tail)->next;
        done = ++found->count == criteria.maximum;
      }
    }

    // Links fall strictly, so every walk ends.
    const uint32_t link = all_classes ? info.prev_log_offset : info.prev_class_log_offset;
    if (link >= offset) return damaged(all_classes ? XLOG_RETRIEVE_BAD_LINK : XLOG_RETRIEVE_BAD_CLASS_LINK, offset);
    limit = offset;
    offset = link;
    if (stops_on_time && criteria.start.seconds > timestamp.seconds) done = true;
  }
  return {};
}

}  // namespace plov::log
