#include "restart/lookup.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "frame/call.h"
#include "restart/event.h"

namespace plov::restart {
namespace {

constexpr uint32_t kNoMemory = 0x3081, kTooLong = 0x3580;
constexpr size_t kLineSize = 79;  // its NUL included

// Texts that are taken by their place in the table, not looked up.
enum Place : uint32_t { kUnknownLine1 = 0, kUnknownLine2 = 1, kBadPart = 2, kNoSuchPart = 3, kNoMemoryLine1 = 4 };

// Reported with a text that needs no memory of its own, so that a failure to report does not lead back here. The record
// keeps the data of the failure that is being reported.
void report_no_memory(RestartRecord& record, size_t size) {
  restart_trace('F', "our_fmalloc: _fmalloc failed for size %u", static_cast<uint32_t>(size));
  RestartRecord own = record;
  own.data = static_cast<uint32_t>(size);
  own.reboot_requested = 0;
  char line[kLineSize];
  snprintf(line, sizeof line, bt_err_list[kNoMemoryLine1].text, own.data);
  log_event(own, "our_fmalloc", line, nullptr, kNoMemory);
  fail(record, frame::kSystemFailure, kNoMemory);
}

Line our_fmalloc(RestartRecord& record, size_t size) {
  Line line(static_cast<char*>(PLOV_MALLOC(size)));
  if (!line) report_no_memory(record, size);
  return line;
}

}  // namespace

Line lookup_err(RestartRecord& record, uint32_t count, const xbt_message* table, uint32_t id, uint32_t part, ...) {
  restart_trace('D', "-> lookup_err: Got here for message %4.4X, part %u", id, part);
  Line line = our_fmalloc(record, kLineSize);
  if (!line) return line;
  const xbt_message* const end = table + count;
  const xbt_message* entry = std::find_if(table, end, [id](const xbt_message& at) { return at.id == id; });
  const bool known = entry != end;
  if (known && part == 2) ++entry;
  int length = 0;
  if (part != 1 && part != 2) {
    snprintf(line.get(), kLineSize, bt_err_list[kBadPart].text, part, id);
  } else if (!known) {
    snprintf(line.get(), kLineSize, bt_err_list[part == 1 ? kUnknownLine1 : kUnknownLine2].text, id);
  } else if (entry == end || entry->id != id) {
    snprintf(line.get(), kLineSize, bt_err_list[kNoSuchPart].text, part, id);
  } else {
    va_list arguments;
    va_start(arguments, part);
    length = vsnprintf(line.get(), kLineSize, entry->text, arguments);
    va_end(arguments);
  }
  constexpr uint32_t kLongest = kLineSize - 1;
  if (length > static_cast<int>(kLongest)) {
    const Line line1 = lookup_err(record, bt_err_info.count, bt_err_info.table, kTooLong, 1, kLongest);
    const Line line2 = lookup_err(record, bt_err_info.count, bt_err_info.table, kTooLong, 2, length, id);
    put_event(record, "lookup_err", line1.get(), line2.get(), kTooLong);
  }
  return line;
}

}  // namespace plov::restart
