// The three tests that select a log: its event id, its time, what its blocks hold.
#include <string.h>

#include <algorithm>

#include "xlog.h"

namespace {

// Hundredths above 99, which only damage or a foreign writer produces, are carried into the seconds.
xlog_timestamp normalised(const xlog_timestamp& stamp) {
  const uint64_t milliseconds = uint64_t{stamp.seconds} * 1000 + stamp.hundredths * 10u;
  return {static_cast<uint32_t>(milliseconds / 1000), static_cast<uint8_t>(milliseconds % 1000 / 10)};
}

bool later(const xlog_timestamp& one, const xlog_timestamp& other) {
  return one.seconds > other.seconds || (one.seconds == other.seconds && one.hundredths > other.hundredths);
}

// A pattern longer than the block is not in it.
bool holds(const xlog_block_entry& block, const xlog_pattern& pattern) {
  const uint32_t length = std::min(pattern.length, XLOG_MAX_BLOCK_SIZE);
  if (block.block_id != pattern.block_id || !block.data || block.length < length) return false;
  for (uint32_t i = 0; i < length; ++i)
    if ((pattern.data[i] ^ block.data[i]) & pattern.mask[i]) return false;
  return true;
}

}  // namespace

int32_t xlog_match_eventid(uint16_t options, const xlog_eventid* requested, const xlog_eventid* log) {
  if (options & (XLOG_OPT_ANY_EVENTID | XLOG_OPT_ALL_CLASSES)) return 1;
  if (options & XLOG_OPT_TYPE_ONLY) return requested->log_type == log->log_type;
  return memcmp(requested, log, sizeof *log) == 0;
}

int32_t xlog_match_time(uint16_t options, const xlog_timestamp* start, const xlog_timestamp* end, xlog_timestamp* log) {
  *log = normalised(*log);
  if (options & XLOG_OPT_EXACT_TIME) return memcmp(start, log, sizeof *log) == 0;
  if (start->seconds != 0 && later(*start, *log)) return 0;
  return end->seconds == 0 || !later(*log, *end);
}

int32_t xlog_match_pattern(const xlog_pattern* patterns, const xlog_block_entry* blocks) {
  for (; patterns; patterns = patterns->next) {
    const xlog_block_entry* block = blocks;
    while (block && !holds(*block, *patterns)) block = block->next;
    if (!block) return 0;
  }
  return 1;
}
