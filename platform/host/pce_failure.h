// How the process-control kernel leaves a failure in the call record.
#ifndef PLOV_HOST_PCE_FAILURE_H
#define PLOV_HOST_PCE_FAILURE_H

#include "pce.h"

namespace plov::host {

// The first reason stays, the grade is raised. Signal-safe.
inline void note_failure(pce_call_record* record, uint32_t reason, uint32_t data) {
  if (record->comprc == 0) {
    record->comprc = reason;
    record->data = data;
  }
  if (record->sysrc < 8) record->sysrc = 8;
}

// A failed system call, whose errno is also the result.
inline int32_t system_failure(pce_call_record* record, int error) {
  note_failure(record, static_cast<uint32_t>(error), static_cast<uint32_t>(error));
  return error;
}

}  // namespace plov::host

#endif
