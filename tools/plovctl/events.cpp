#include "events.h"

#include <fnmatch.h>

#include <algorithm>
#include <cstring>

#include "copies.h"
#include "escape.h"
#include "expand.h"
#include "failure.h"
#include "log_layout.h"
#include "output.h"

namespace plov::ctl {
namespace {

template <typename Value>
bool wanted(const std::vector<Value>& values, Value value) {
  return values.empty() || std::find(values.begin(), values.end(), value) != values.end();
}

bool matches_pattern(const Pattern& pattern, Bytes data) {
  if (data.size() < pattern.data.size()) return false;
  for (size_t i = 0; i < pattern.data.size(); ++i)
    if ((pattern.data[i] & pattern.mask[i]) != (data[i] & pattern.mask[i])) return false;
  return true;
}

bool contains(Bytes data, const std::string& text) {
  return memmem(data.data(), data.size(), text.data(), text.size()) != nullptr;
}

// The library's patterns, which are a chain of C records.
std::vector<xlog_pattern> chain(const std::vector<Pattern>& patterns) {
  std::vector<xlog_pattern> records(patterns.size());
  for (size_t i = 0; i < records.size(); ++i)
    records[i] = {static_cast<uint32_t>(patterns[i].data.size()), patterns[i].block_id, patterns[i].data.data(),
                  patterns[i].mask.data(), i + 1 < records.size() ? &records[i + 1] : nullptr};
  return records;
}

Event event_of(const xlog_log_entry& entry) {
  Event event;
  event.id = entry.eventid;
  event.stamp = {entry.timestamp.seconds, entry.timestamp.hundredths};
  event.name.assign(entry.event_name, XLOG_NAME_SIZE);
  event.flags = entry.flags;
  for (const xlog_block_entry* block = entry.blocks; block; block = block->next)
    event.blocks.push_back({block->block_id, {block->data, block->data ? block->length : 0}});
  return event;
}

// What the library can select by: one class along its own chain, else every log. A type alone is never its business,
// because its walk over all classes takes every event id.
void set_event_id(const Selection& selection, xlog_retrieve_block& block) {
  if (selection.classes.size() != 1) {
    block.options = XLOG_OPT_ALL_CLASSES;
    return;
  }
  block.eventid.classes = selection.classes[0];
  block.options = XLOG_OPT_ANY_EVENTID;
  if (selection.types.size() != 1) return;
  block.eventid.log_type = selection.types[0];
  block.options = XLOG_OPT_TYPE_ONLY;
  if (selection.users.size() != 1) return;
  block.eventid.user = selection.users[0];
  block.options = 0;
}

xlog_timestamp limit(const std::optional<Stamp>& stamp) {
  if (!stamp) return {};
  if (stamp->seconds == 0) return {1, 0};  // 0 would be no limit
  return {stamp->seconds, stamp->hundredths};
}

// As the library reads a stamp: hundredths above 99 carry into the seconds.
Stamp carried(const xlog_timestamp& stamp) {
  return {stamp.seconds + stamp.hundredths / 100u, static_cast<uint8_t>(stamp.hundredths % 100)};
}

}  // namespace

bool Event::same_as(const Event& other) const {
  return memcmp(&id, &other.id, sizeof id) == 0 && stamp == other.stamp && name == other.name;
}

bool Selection::matches(const Event& event) const {
  const std::string trimmed(trim_field(event.name.data(), event.name.size()));
  const auto holds = [&](const Pattern& pattern) {
    return std::any_of(event.blocks.begin(), event.blocks.end(), [&](const Block& block) {
      return block.id == pattern.block_id && matches_pattern(pattern, block.data);
    });
  };
  return wanted(classes, event.id.classes) && wanted(types, event.id.log_type) &&
         wanted(users, uint16_t{event.id.user}) && (name.empty() || fnmatch(name.c_str(), trimmed.c_str(), 0) == 0) &&
         (!since || event.stamp >= *since) && (!until || event.stamp <= *until) &&
         std::all_of(patterns.begin(), patterns.end(), holds) &&
         (grep.empty() || std::any_of(event.blocks.begin(), event.blocks.end(),
                                      [&](const Block& block) { return contains(block.data, grep); }));
}

void Selection::drop_blocks(Event& event) const {
  std::erase_if(event.blocks, [&](const Block& block) { return !wanted(kept_blocks, block.id); });
}

bool Selection::library_decides() const {
  const bool ids = classes.empty() ? types.empty() && users.empty()
                                   : classes.size() == 1 && types.size() <= 1 &&
                                         (users.empty() || (types.size() == 1 && users.size() == 1));
  return ids && name.empty() && grep.empty();
}

void EventList::Release::operator()(xlog_retrieve_block* block) const {
  uint32_t comprc = 0;
  xlog_free(block, &comprc);
  delete block;
}

EventList EventList::fetch(const LogName& log, const Selection& selection, uint32_t maximum) {
  EventList list;
  list.retrieved_.reset(new xlog_retrieve_block{});
  xlog_retrieve_block& block = *list.retrieved_;
  set_event_id(selection, block);
  block.start = limit(selection.since);
  block.end = limit(selection.until);
  memcpy(block.target_session, log.session.data(), log.session.size());
  std::vector<xlog_pattern> patterns = chain(selection.patterns);
  block.patterns = patterns.empty() ? nullptr : patterns.data();
  block.maximum = maximum;
  // A text is looked for in every block, so none may be left out then.
  const bool filter_blocks = !selection.kept_blocks.empty() && selection.grep.empty();
  if (filter_blocks) {
    block.id_count = static_cast<uint32_t>(selection.kept_blocks.size());
    block.id_list = selection.kept_blocks.data();
  }
  uint32_t comprc = 0;
  const int32_t sysrc = xlog_retrieve(&block, &comprc);
  block.patterns = nullptr;
  const bool class_without_logs = sysrc == 2 && comprc == XLOG_RETRIEVE_NO_START;
  const bool only_close_failed = sysrc == 0 && comprc == XLOG_ERR_CLOSE;
  if (only_close_failed)
    complain("xlog_retrieve (" + log.path + "): " + explain_result(Family::xlog, sysrc, comprc));
  else if (!class_without_logs && (sysrc != 0 || comprc != 0))
    throw CallFailure("xlog_retrieve", log.path, Family::xlog, sysrc, comprc);
  for (const xlog_log_entry* entry = block.result; entry; entry = entry->next) {
    list.events.push_back(event_of(*entry));
    // The library hands kept blocks over in reverse.
    if (filter_blocks) std::reverse(list.events.back().blocks.begin(), list.events.back().blocks.end());
  }
  return list;
}

EventList EventList::salvage(Bytes file) {
  EventList list;
  list.add_logs(file, 0);
  return list;
}

EventList EventList::fetch_with_copies(const LogName& log) {
  EventList list;
  const LogLock lock;
  CopyWalk walk(log);
  for (bool more = true; more;) {
    const std::vector<uint8_t>& bytes = list.files_.emplace_back(walk.read());
    uint32_t above = 0;
    more = walk.enter_copy(bytes, &above);
    list.add_logs(bytes, above);
  }
  return list;
}

void EventList::add_logs(Bytes file, uint32_t above) {
  const std::optional<xlog_file_header> header = load_file_header(file);
  if (!header) return;
  const LogLayout layout = lay_out(file, *header);
  for (auto offset = layout.logs.rbegin(); offset != layout.logs.rend() && *offset > above; ++offset) {
    const LoadedLog log = load_log(file, *offset, layout.end);
    if (log.info.log_flags == XLOG_LOG_DELETED) continue;
    Event event;
    event.id = log.info.eventid;
    event.stamp = carried(log.info.timestamp);
    event.name.assign(log.info.event_name, XLOG_NAME_SIZE);
    event.flags = log.info.log_flags & (XLOG_LOG_PROBLEM_ANALYSIS | XLOG_LOG_DISPLAY_AS_ERROR);
    uint64_t data = *offset + log.header_size();
    for (uint32_t i = 0; i < log.info.num_blocks; ++i) {
      const xlog_block_info entry = load_block_info(file, *offset, i);
      if (data + entry.block_size > *offset + uint64_t{log.info.total_log_size}) break;
      Bytes bytes = file.subspan(data, entry.block_size);
      if ((log.info.log_flags & XLOG_LOG_STORED_FORM) && entry.block_id != XLOG_MODIFY_BLOCK_ID)
        bytes = expanded_.emplace_back(expand_block(bytes).bytes);
      event.blocks.push_back({entry.block_id, bytes});
      data += entry.block_size;
    }
    events.push_back(std::move(event));
  }
}

void EventList::apply(const Selection& selection, size_t maximum) {
  std::erase_if(events, [&](const Event& event) { return !selection.matches(event); });
  if (maximum != 0 && events.size() > maximum) events.resize(maximum);
  for (Event& event : events) selection.drop_blocks(event);
}

}  // namespace plov::ctl
