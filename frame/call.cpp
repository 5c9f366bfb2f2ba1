#include "frame/call.h"

#include <string.h>

#include "frame/probe.h"
#include "xpce.h"
#include "xtr.h"

namespace plov::frame {

Call::Call(const char* name, const char* entry, const char* exit, uint32_t* comprc)
    : entry_(entry), exit_(exit), comprc_(comprc), record_{} {
  xtr_trace(entry);
  record_.active = 1;
  strncpy(record_.name, name, sizeof record_.name - 1);
  uint32_t scratch;
  usable_ = probe(comprc, sizeof *comprc, Access::write, &scratch) == 0;
  if (!usable_) record_.sysrc = kUnusableComprc;
}

bool Call::fail(uint32_t grade, uint32_t code) {
  if (record_.comprc == 0) record_.comprc = code;
  if (record_.sysrc < grade) record_.sysrc = grade;
  return false;
}

bool Call::writable(const void* address, size_t size, uint32_t code) {
  uint32_t scratch;
  if (!ok()) return false;
  return probe(address, size, Access::write, &scratch) == 0 || refuse(code);
}

bool Call::readable(const void* address, size_t size, uint32_t code) {
  uint32_t scratch;
  if (!ok()) return false;
  return probe(address, size, Access::read, &scratch) == 0 || refuse(code);
}

bool Call::text(const char* string, uint32_t code, uint32_t* length) {
  uint32_t scratch = 0, counted = 0;
  if (!ok()) return false;
  if (probe_string(string, &counted, &scratch) != 0) return refuse(code);
  // Passed because it could not be made, as for whoever holds xtr_mutex_sem: then nothing was counted.
  if (scratch == XPCE_PROBE_WRITABLE) counted = static_cast<uint32_t>(strlen(string));
  if (length) *length = counted;
  return true;
}

int32_t Call::leave(const char* tag) {
  if (usable_) {
    *comprc_ = record_.comprc;
    if (record_.sysrc != 0)
      xtr_trace("%.7sF:    %s: src= 0x%X, crc= 0x%X", tag ? tag : entry_, record_.name, record_.sysrc, record_.comprc);
  }
  xtr_trace(exit_);
  return static_cast<int32_t>(record_.sysrc);
}

}  // namespace plov::frame
