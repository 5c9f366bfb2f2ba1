#include "log/event_text.h"

#include <string.h>

#include "frame/bridge.h"
#include "xtr.h"

namespace plov::log {
namespace {

// Java finds the event's name under this one.
char name_of_name[] = "EVENTNAME";

using frame::bridge_status;
using frame::JavaReference;

// Every call here answers by the status protocol: a console's own bridge may have more to fetch of any of them.

bool create_log(const EventCopy& event, JavaReference* log) {
  JavaReference name;
  int32_t rc =
      bridge_status(xnbCreateNamedStringFromUTF8(name_of_name, event.name, static_cast<uint32_t>(strlen(event.name))));
  xtr_trace("XLOG   F: After xnbCreateNamedStringFromUTF8 (event_name = %s), rc = %d", event.name, rc);
  if (rc != 0) return false;
  name.object = name_of_name;  // a string with a name is released by it
  const xnb_object none = nullptr;
  rc = bridge_status(xnbInstantiateObjectI(
      "com.zanth.vemra.fw.log.Log",
      "BBSLjava.lang.String;Ljava.util.Date;Ljava.lang.Throwable;Ljava.lang.String;Ljava.lang.String;", &log->object,
      int{event.eventid.classes}, int{event.eventid.log_type}, int{event.eventid.user}, name.object, none, none, none,
      none));
  xtr_trace("XLOG   F: After xnbInstantiateObject (Log), rc = %d", rc);
  return rc == 0;
}

bool add_block(const JavaReference& log, const EventBlock& block) {
  JavaReference array;
  int32_t rc = bridge_status(xnbCreateArrayI("B", block.size, &array.object));
  xtr_trace("XLOG   F: After creating byte array, rc = %d", rc);
  if (rc != 0) return false;
  rc = bridge_status(xnbSetByteArrayElements(array.object, 0, block.size, block.data()));
  xtr_trace("XLOG   F: After setting byte array, rc = %d", rc);
  if (rc != 0) return false;
  const xnb_object none = nullptr;
  rc = bridge_status(xnbCallVoidMethod("add", "Ljava.lang.Object;BLcom.zanth.vemra.fw.util.ObjectDumperAttributes;",
                                       log.object, array.object, int{block.id}, none));
  xtr_trace("XLOG   F: After calling add for block %d, rc = %d", block.id, rc);
  return rc == 0;
}

bool event_text(const JavaReference& log, EventText* text) {
  JavaReference event_log, event_text, string;
  int32_t rc = bridge_status(xnbInstantiateObjectI("com.zanth.vemra.fw.log.EventLog", "Lcom.zanth.vemra.fw.log.Log;",
                                                   &event_log.object, log.object));
  xtr_trace("XLOG   F: After xnbInstantiateObject (EventLog), rc = %d", rc);
  if (rc != 0) return false;
  rc = bridge_status(xnbCallObjectMethodI("getEventText", "", event_log.object, &event_text.object));
  xtr_trace("XLOG   F: After xnbCallObjectMethod (getEventText), rc = %d", rc);
  if (rc != 0) return false;
  rc = bridge_status(xnbCallObjectMethodI("toString", "", event_text.object, &string.object));
  xtr_trace("XLOG   F: After xnbCallObjectMethod (toString), rc = %d", rc);
  if (rc != 0) return false;
  uint32_t length = 0;
  rc = bridge_status(xnbGetStringAsUTF8(string.object, &text->text, &length));
  xtr_trace("XLOG   F: After xnbGetStringAsUTF8, rc = %d", rc);
  if (rc != 0 || !text->text) return false;
  xtr_trace("XLOG   F: Event Text = %s", text->text);
  return true;
}

}  // namespace

bool render_event(const EventCopy& event, EventText* text) {
  JavaReference log;
  if (!create_log(event, &log)) return false;
  for (const EventBlock* block = event.blocks; block; block = block->next)
    if (!add_block(log, *block)) return false;
  return event_text(log, text);
}

}  // namespace plov::log
