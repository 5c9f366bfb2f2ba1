// The text of an event in the console's language, as the Java side makes it.
#ifndef PLOV_LOG_EVENT_TEXT_H
#define PLOV_LOG_EVENT_TEXT_H

#include "log/event_copy.h"
#include "xnb.h"

namespace plov::log {

// A text that the bridge made.
class EventText {
 public:
  EventText() = default;
  EventText(const EventText&) = delete;
  EventText& operator=(const EventText&) = delete;
  ~EventText() {
    if (text) xnbReleaseString(text);
  }

  char* text = nullptr;
};

// False when a step of it failed; which one and how stands in the trace. Not to be called while the thread holds a
// lock.
bool render_event(const EventCopy& event, EventText* text);

}  // namespace plov::log

#endif
