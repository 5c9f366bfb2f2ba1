// Event data: message references packed back to back into a caller's area, each behind its length. Every length is two
// bytes, most significant first.
#include "frame/call.h"
#include "frame/caller_memory.h"
#include "xlog.h"
#include "xtr.h"

namespace plov::log {
namespace {

class EventData {
 public:
  EventData(frame::Call& call, uint8_t* area) : call_(call), cursor_(area) {}

  uint8_t* cursor() const { return cursor_; }

  bool append(const xlog_message_reference* caller) {
    xlog_message_reference reference;
    if (!take(&reference, caller, XLOG_EVENT_DATA_BAD_REFERENCE)) return false;
    uint8_t* const length_place = cursor_;
    if (!call_.writable(length_place, kLengthSize, XLOG_EVENT_DATA_NO_ROOM)) return false;
    cursor_ += kLengthSize;

    Text text;
    if (!take_text(reference.bundle, XLOG_EVENT_DATA_BAD_BUNDLE, &text)) return false;
    xtr_trace("XLOG   D: append bundle name[%s]", text.shown);
    if (!append_item(text, XLOG_EVENT_DATA_NO_BUNDLE_ROOM)) return false;
    if (!take_text(reference.key, XLOG_EVENT_DATA_BAD_KEY, &text)) return false;
    xtr_trace("XLOG   D: append key name[%s]", text.shown);
    if (!append_item(text, XLOG_EVENT_DATA_NO_KEY_ROOM)) return false;
    xtr_trace("XLOG   D: pds->pltd[ltdindex].numSubVars = %d (dec)", reference.count);
    for (uint32_t i = 0; i < reference.count; ++i) {
      const char* variable;
      if (!take(&variable, reference.texts + i, XLOG_EVENT_DATA_BAD_VARIABLE)) return false;
      if (!take_text(variable, XLOG_EVENT_DATA_BAD_TEXT, &text)) return false;
      xtr_trace("XLOG   D: append substitution variable[%s]", text.shown);
      if (!append_item(text, XLOG_EVENT_DATA_NO_VARIABLE_ROOM)) return false;
    }
    const size_t length = static_cast<size_t>(cursor_ - length_place) - kLengthSize;
    return put_length(length_place, static_cast<uint32_t>(length), XLOG_EVENT_DATA_NO_ROOM);
  }

 private:
  static constexpr uint32_t kLengthSize = 2;

  // A text of the caller's, and as much of it as a trace line shows.
  struct Text {
    const char* caller;
    uint32_t length;
    char shown[256];
  };

  bool take(void* copy, const void* from, size_t size, uint32_t code) {
    return call_.readable(from, size, code) && (frame::copy_from_caller(copy, from, size) || call_.refuse(code));
  }
  template <class T>
  bool take(T* copy, const T* from, uint32_t code) {
    return take(copy, from, sizeof *copy, code);
  }

  // Of a longer text the low 16 bits of its length count, for the bytes as for what is written in front of them.
  bool take_text(const char* from, uint32_t code, Text* text) {
    if (!call_.text(from, code, &text->length)) return false;
    const uint32_t shown = text->length < sizeof text->shown ? text->length : sizeof text->shown - 1;
    if (!frame::copy_from_caller(text->shown, from, shown)) return call_.refuse(code);
    text->shown[shown] = '\0';
    text->caller = from;
    text->length &= 0xFFFF;
    return true;
  }

  bool put_length(uint8_t* place, uint32_t length, uint32_t code) {
    const uint8_t bytes[kLengthSize] = {static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)};
    return frame::copy_to_caller(place, bytes, sizeof bytes) || call_.refuse(code);
  }

  bool append_item(const Text& text, uint32_t code) {
    if (!call_.writable(cursor_, kLengthSize + text.length, code) || !put_length(cursor_, text.length, code))
      return false;
    if (!frame::copy_to_caller(cursor_ + kLengthSize, text.caller, text.length)) return call_.refuse(code);
    cursor_ += kLengthSize + text.length;
    return true;
  }

  frame::Call& call_;
  uint8_t* cursor_;
};

void append(frame::Call& call, const xlog_event_data_details* caller) {
  xlog_event_data_details details;
  uint8_t* area;
  if (!call.readable(caller, sizeof details, XLOG_EVENT_DATA_BAD_DETAILS)) return;
  if (!frame::copy_from_caller(&details, caller, sizeof details)) {
    call.refuse(XLOG_EVENT_DATA_BAD_DETAILS);
    return;
  }
  xtr_trace("XLOG   F: passed in xlog_details_struct pointer = %p", static_cast<const void*>(caller));
  xtr_trace("XLOG   F: passed number of ltd data areas = %d (dec)", details.count);
  if (!call.writable(details.cursor, sizeof area, XLOG_EVENT_DATA_BAD_CURSOR)) return;
  if (!frame::copy_from_caller(&area, details.cursor, sizeof area)) {
    call.refuse(XLOG_EVENT_DATA_BAD_CURSOR);
    return;
  }

  EventData data(call, area);
  for (uint32_t i = 0; i < details.count && call.ok(); ++i) {
    xtr_trace("XLOG   F: pltd[%d] = %p", i, static_cast<const void*>(details.references + i));
    data.append(details.references + i);
  }
  // What was written before a failure stays, and the cursor stays behind it.
  uint8_t* const end = data.cursor();
  if (!frame::copy_to_caller(details.cursor, &end, sizeof end)) call.refuse(XLOG_EVENT_DATA_BAD_CURSOR);
  xtr_trace("XLOG   F: current output data area pointer = %p", static_cast<void*>(end));
  xtr_trace("XLOG   D: appended data is ");
  xtr_dump_bytes(area, static_cast<uint32_t>(end - area));
}

}  // namespace
}  // namespace plov::log

int32_t xlog_append_event_data(const xlog_event_data_details* details, uint32_t* comprc) {
  plov::frame::Call call("xlog_append_event_data", "XLOG   F: -> xlog_append_event_data version 1.4",
                         "XLOG   F: <- xlog_append_event_data", comprc);
  plov::log::append(call, details);
  if (call.sysrc() == plov::frame::kUnusableComprc)
    xtr_trace("XLOG   F: sys_rc = %X (hex)", call.sysrc());
  else
    xtr_trace("XLOG   F: sys_rc = %X, comp_rc = %X (hex)", call.sysrc(), call.comprc());
  return call.leave();
}
