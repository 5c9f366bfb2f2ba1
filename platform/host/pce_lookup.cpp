// Message lookup of the process-control kernel.
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "pce.h"
#include "xpce.h"
#include "xtr.h"

namespace {

constexpr uint32_t kTooLongMessage = 0x3580;

// A copy of `text` for the caller, cut to what a message line holds.
char* make_line(pce_call_record* record, const char* text) {
  void* block;
  if (pce_malloc(record, &block, PCE_LINE_SIZE) != 0) return nullptr;
  const size_t length = std::min<size_t>(strlen(text), PCE_LINE_SIZE - 1);
  char* line = static_cast<char*>(block);
  memcpy(line, text, length);
  line[length] = '\0';
  return line;
}

void report_too_long(pce_call_record* record, uint32_t length, uint32_t id) {
  char line1[PCE_LINE_SIZE], line2[PCE_LINE_SIZE];
  snprintf(line1, sizeof line1, "Error Message Exceeds maximum length of %u.", PCE_LINE_SIZE - 1);
  snprintf(line2, sizeof line2, "Length is %u. Message # %4.4X.", length, id);
  pce_put_event(record, "pce_lookup_err", make_line(record, line1), make_line(record, line2), kTooLongMessage);
}

}  // namespace

int32_t pce_lookup_err(pce_call_record* record, uint32_t count, const struct xpce_message* table, char** line,
                       uint32_t id, uint32_t part, ...) {
  xtr_trace("PCE____D: -> pce_lookup_err: Got here for message %4.4X, part %u", id, part);
  char text[512];
  uint32_t length = 0;
  uint32_t place = 0;
  while (place < count && table[place].id != id) ++place;
  const bool known = place < count;
  if (part == 2) ++place;
  if (part != 1 && part != 2) {
    snprintf(text, sizeof text, "lookup_err: Part number %u is incorrect. message # %4X", part, id);
  } else if (!known) {
    snprintf(text, sizeof text, "lookup_err: Error #%u-> No Known message # %4X found!!", part, id);
  } else if (place >= count || table[place].id != id) {
    snprintf(text, sizeof text, "lookup_err: Part number %u is incorrect for message # %4X", part, id);
  } else {
    char format[sizeof table->text + 1] = {};
    memcpy(format, table[place].text, sizeof table->text);
    va_list arguments;
    va_start(arguments, part);
    const int formatted = vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    length = formatted > 0 ? static_cast<uint32_t>(formatted) : 0;
  }
  *line = make_line(record, text);
  if (*line && length > PCE_LINE_SIZE - 1) report_too_long(record, length, id);
  return *line ? 0 : 8;
}
