// An event as the system-log copy needs it, in memory of our own: the caller's may be gone by the time that Java is
// called, and Java must not be given memory with a hole in it.
#ifndef PLOV_LOG_EVENT_COPY_H
#define PLOV_LOG_EVENT_COPY_H

#include <memory>

#include "frame/memory.h"
#include "xlog.h"

namespace plov::log {

struct EventBlock {
  EventBlock* next;
  uint32_t size;
  uint8_t id;
  const uint8_t* data() const { return reinterpret_cast<const uint8_t*>(this + 1); }
};

struct EventCopy {
  xlog_eventid eventid;
  char name[XLOG_NAME_SIZE + 1];
  EventBlock* blocks;
};

struct FreeEvent {
  void operator()(EventCopy* event) const;
};
using OwnedEvent = std::unique_ptr<EventCopy, FreeEvent>;

// Copies the event and those of its blocks that Java is to have, in the caller's order. Empty when any node or its data
// is unusable, when the chain is longer than a log may be, or without memory.
OwnedEvent copy_event(const xlog_log_request& request);

}  // namespace plov::log

#endif
