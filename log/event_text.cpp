#include "log/event_text.h"

#include <errno.h>
#include <stdint.h>
#include <string.h>

#include "frame/memory.h"
#include "xtr.h"

namespace plov::log {
namespace {

// The bridge's buffer for what is left of a call: length and address are multiples of this.
constexpr uintptr_t kBridgeAlignment = 16;

// Java finds the event's name under this one.
char name_of_name[] = "EVENTNAME";

// A reference into the Java side, released whatever happens.
class JavaObject {
 public:
  JavaObject() = default;
  JavaObject(const JavaObject&) = delete;
  JavaObject& operator=(const JavaObject&) = delete;
  ~JavaObject() {
    if (reference) xnbReleaseObjectReference(reference);
  }

  xnb_object reference = nullptr;
};

// The status of a call whose name ends in "I".
int32_t status_of(int32_t result) {
  if (xnbSaveStatus(result) == 0) return xnbGetLastStatus();
  constexpr size_t kMask = kBridgeAlignment - 1;
  const size_t length = (size_t{xnbGetAllocaLen()} + kMask) & ~kMask;
  const frame::Owned<uint8_t> memory(static_cast<uint8_t*>(PLOV_MALLOC(length + kMask)));
  if (!memory) return ENOMEM;
  const auto misplaced = reinterpret_cast<uintptr_t>(memory.get()) & kMask;
  return xnbUnloadAlloca(memory.get() + (misplaced ? kBridgeAlignment - misplaced : 0));
}

bool create_log(const EventCopy& event, JavaObject* log) {
  JavaObject name;
  int32_t rc = kNoBridge;
  if (xnbCreateNamedStringFromUTF8)
    rc = xnbCreateNamedStringFromUTF8(name_of_name, event.name, static_cast<uint32_t>(strlen(event.name)));
  xtr_trace("XLOG   F: After xnbCreateNamedStringFromUTF8 (event_name = %s), rc = %d", event.name, rc);
  if (rc != 0) return false;
  name.reference = name_of_name;  // a string with a name is released by it
  const xnb_object none = nullptr;
  rc = status_of(xnbInstantiateObjectI(
      "com.zanth.vemra.fw.log.Log",
      "BBSLjava.lang.String;Ljava.util.Date;Ljava.lang.Throwable;Ljava.lang.String;Ljava.lang.String;", &log->reference,
      int{event.eventid.classes}, int{event.eventid.log_type}, int{event.eventid.user}, name.reference, none, none,
      none, none));
  xtr_trace("XLOG   F: After xnbInstantiateObject (Log), rc = %d", rc);
  return rc == 0;
}

bool add_block(const JavaObject& log, const EventBlock& block) {
  JavaObject array;
  int32_t rc = status_of(xnbCreateArrayI("B", block.size, &array.reference));
  xtr_trace("XLOG   F: After creating byte array, rc = %d", rc);
  if (rc != 0) return false;
  rc = xnbSetByteArrayElements(array.reference, 0, block.size, block.data());
  xtr_trace("XLOG   F: After setting byte array, rc = %d", rc);
  if (rc != 0) return false;
  const xnb_object none = nullptr;
  rc = xnbCallVoidMethod("add", "Ljava.lang.Object;BLcom.zanth.vemra.fw.util.ObjectDumperAttributes;", log.reference,
                         array.reference, int{block.id}, none);
  xtr_trace("XLOG   F: After calling add for block %d, rc = %d", block.id, rc);
  return rc == 0;
}

bool event_text(const JavaObject& log, EventText* text) {
  JavaObject event_log, event_text, string;
  int32_t rc = status_of(xnbInstantiateObjectI("com.zanth.vemra.fw.log.EventLog", "Lcom.zanth.vemra.fw.log.Log;",
                                               &event_log.reference, log.reference));
  xtr_trace("XLOG   F: After xnbInstantiateObject (EventLog), rc = %d", rc);
  if (rc != 0) return false;
  rc = status_of(xnbCallObjectMethodI("getEventText", "", event_log.reference, &event_text.reference));
  xtr_trace("XLOG   F: After xnbCallObjectMethod (getEventText), rc = %d", rc);
  if (rc != 0) return false;
  rc = status_of(xnbCallObjectMethodI("toString", "", event_text.reference, &string.reference));
  xtr_trace("XLOG   F: After xnbCallObjectMethod (toString), rc = %d", rc);
  if (rc != 0) return false;
  uint32_t length = 0;
  rc = xnbGetStringAsUTF8(string.reference, &text->text, &length);
  xtr_trace("XLOG   F: After xnbGetStringAsUTF8, rc = %d", rc);
  if (rc != 0 || !text->text) return false;
  xtr_trace("XLOG   F: Event Text = %s", text->text);
  return true;
}

}  // namespace

bool render_event(const EventCopy& event, EventText* text) {
  JavaObject log;
  if (!create_log(event, &log)) return false;
  for (const EventBlock* block = event.blocks; block; block = block->next)
    if (!add_block(log, *block)) return false;
  return event_text(log, text);
}

}  // namespace plov::log
