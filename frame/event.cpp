#include "frame/event.h"

#include <string.h>

#include "frame/deferred.h"
#include "frame/memory.h"

namespace plov::frame {
namespace {

struct Event {
  EventCall call;
  pce_call_record record;
  const char* function;
  char* line1;
  char* line2;
  uint32_t id;
};

void report(const Event& event) {
  event.call(&event.record, event.function, event.line1, event.line2, event.id);
}

// The values of a waiting event are its address.
static_assert(sizeof(Event*) <= sizeof Deferred::values);

void report_waiting(const Deferred& waiting) {
  Event* event;
  memcpy(&event, waiting.values, sizeof event);
  report(*Owned<Event>(event));
}

void drop(Event* event) {
  pce_free(&event->record, event->line1);
  pce_free(&event->record, event->line2);
  PLOV_FREE(event);
}

}  // namespace

void report_event(EventCall call, const pce_call_record& record, const char* function, char* line1, char* line2,
                  uint32_t id) {
  const Event event = {call, record, function, line1, line2, id};
  auto* const copy = lock_held() ? static_cast<Event*>(PLOV_MALLOC(sizeof(Event))) : nullptr;
  // Without memory to wait in, the process kernel still lets the holder of xtr_mutex_sem wait, and a holder of the log
  // lock may take it again.
  if (!copy) return report(event);
  *copy = event;
  Deferred waiting = {report_waiting, {}};
  memcpy(waiting.values, &copy, sizeof copy);
  if (!record_or_defer(waiting)) drop(copy);
}

}  // namespace plov::frame
