#include "pce/failure.h"

#include <string.h>

#include <algorithm>

#include "frame/event.h"
#include "xpce.h"

namespace plov::pce {
namespace {

void report(frame::EventCall event, pce_call_record& record, const char* function, uint32_t id, uint32_t value) {
  char* lines[2] = {};
  for (uint32_t part : {1u, 2u})
    pce_lookup_err(&record, err_info.count, err_info.table, &lines[part - 1], id, part, value);
  frame::report_event(event, record, function, lines[0], lines[1], id);
}

}  // namespace

void fail(pce_call_record& record, uint32_t code, uint32_t data) {
  if (record.comprc == 0) record.comprc = code;
  record.sysrc = std::max(record.sysrc, 8u);
  record.data = data;
}

void log_failure(pce_call_record& record, const char* function, uint32_t id, uint32_t value) {
  report(pce_log_event, record, function, id, value);
}

void put_failure(pce_call_record& record, const char* function, uint32_t id, uint32_t value) {
  report(pce_put_event, record, function, id, value);
}

pce_call_record inner_record(const pce_call_record& record) {
  pce_call_record inner = {};
  inner.active = record.active;
  inner.crash = record.crash;
  memcpy(inner.name, record.name, sizeof inner.name);
  return inner;
}

}  // namespace plov::pce
