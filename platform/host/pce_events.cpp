// Failure events of the process-control kernel: traced, and recorded in the log when there is one in this process.
#include <dlfcn.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>

#include "pce.h"
#include "platform/host/pce_queue.h"
#include "xlog.h"
#include "xtr.h"

namespace {

constexpr uint8_t kClass = 5, kType = 1, kTextBlock = 3;
constexpr unsigned kQueueLimit = 8;

struct Event {
  char function[XLOG_NAME_SIZE + 1];
  char* line1;
  char* line2;
  uint32_t id;
  uint32_t data;
  uint16_t flags;  // of the log request
};

struct Waiting {
  bool held;       // the thread holds xtr_mutex_sem
  bool recording;  // an event is being recorded: one that this raises is only traced
  unsigned count;
  Event queue[kQueueLimit];
};
thread_local Waiting waiting __attribute__((tls_model("initial-exec")));

const char* text_of(const char* line) {
  return line ? line : "(Null Message)";
}

void free_lines(const Event& event) {
  pce_free(nullptr, event.line1);
  pce_free(nullptr, event.line2);
}

void record_event(const Event& event) {
  // The log lies above this library and need not be there; the console's daemons use us without it.
  const auto record = reinterpret_cast<decltype(&xlog_record)>(dlsym(RTLD_DEFAULT, "xlog_record"));
  if (!record || waiting.recording) {
    xtr_trace("PCE____F:    %s: event %X is not recorded, %s", event.function, event.id,
              record ? "another one is being recorded" : "there is no log in this process");
    return;
  }
  struct PLOV_PACKED {
    uint16_t id;
    uint32_t data;
  } error = {static_cast<uint16_t>(event.id), event.data};
  char text[256];
  snprintf(text, sizeof text, "%s: (%X) %s\n%s", event.function, event.id, text_of(event.line1), text_of(event.line2));
  xlog_data_node lines = {static_cast<uint32_t>(strlen(text) + 1), kTextBlock, text, nullptr};
  xlog_data_node first = {sizeof error, XLOG_ERROR_BLOCK_ID, &error, &lines};
  xlog_log_request request = {};
  request.flags = event.flags;
  request.eventid = {kClass, kType, static_cast<uint16_t>(event.id)};
  memcpy(request.event_name, event.function, sizeof request.event_name);
  request.data = &first;
  waiting.recording = true;
  uint32_t comprc = 0;
  const int32_t sysrc = record(&request, &comprc);
  waiting.recording = false;
  if (sysrc != 0)
    xtr_trace("PCE____F:    %s: event %X is not recorded, src= 0x%X, crc= 0x%X", event.function, event.id,
              static_cast<uint32_t>(sysrc), comprc);
}

int32_t report(const pce_call_record* record, const char* function, char* line1, char* line2, uint32_t id,
               uint16_t flags) {
  xtr_trace("PCE____F:    %s: (%X) %s", function, id, text_of(line1));
  xtr_trace("PCE____F:    %s: (%X) %s", function, id, text_of(line2));
  Event event = {{}, line1, line2, id, record ? record->data : 0, flags};
  strncpy(event.function, function, sizeof event.function - 1);
  if (waiting.held && waiting.count < kQueueLimit) {
    waiting.queue[waiting.count++] = event;
    return 0;
  }
  if (waiting.held)
    xtr_trace("PCE____F:    %s: event %X is not recorded, too many wait", event.function, id);
  else
    record_event(event);
  free_lines(event);
  return 0;
}

// The child holds nothing, and what waits is the parent's to record.
void after_fork_in_child() {
  while (waiting.count > 0) free_lines(waiting.queue[--waiting.count]);
  waiting.held = waiting.recording = false;
}

__attribute__((constructor)) void watch_forks() {
  pthread_atfork(nullptr, nullptr, after_fork_in_child);
}

}  // namespace

namespace plov::host {

void hold_events() {
  waiting.held = true;
}

void release_events() {
  waiting.held = false;
  Event ready[kQueueLimit];
  const unsigned count = waiting.count;
  memcpy(ready, waiting.queue, count * sizeof *ready);
  waiting.count = 0;
  for (unsigned i = 0; i < count; ++i) {
    record_event(ready[i]);
    free_lines(ready[i]);
  }
}

}  // namespace plov::host

int32_t pce_log_event(const pce_call_record* record, const char* function, char* line1, char* line2, uint32_t id) {
  return report(record, function, line1, line2, id, XLOG_DISPLAY_AS_ERROR_FLAG);
}

int32_t pce_put_event(const pce_call_record* record, const char* function, char* line1, char* line2, uint32_t id) {
  return report(record, function, line1, line2, id, 0);
}
