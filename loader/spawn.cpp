// Starting a program: the check of what the caller hands over, and the start itself.
#include <spawn.h>
#include <string.h>
#include <unistd.h>

#include "frame/call.h"
#include "frame/probe.h"
#include "loader/spawn_trace.h"
#include "loader/wait_for_end.h"
#include "xmis.h"
#include "xpce.h"

namespace plov::loader {
namespace {

bool refuse(SpawnRecord& record, uint32_t code) {
  record.comprc = code;
  record.sysrc = frame::kRefused;
  return false;
}

bool writable(const void* address, size_t size) {
  uint32_t scratch;
  return frame::probe(address, size, frame::Access::write, &scratch) == 0;
}

bool good_program(const char* program) {
  uint32_t length = 0, scratch = 0;
  const int32_t rc = frame::probe_string(program, &length, &scratch);
  // Passed because no probe could be made: then nothing was counted.
  if (rc == 0 && scratch == XPCE_PROBE_WRITABLE) length = static_cast<uint32_t>(strlen(program));
  if (rc == 0 && length > 0) return true;
  spawn_trace('F', "   chk_spawn_intf: rc= %u, str_len= %u", static_cast<uint32_t>(rc), length);
  return false;
}

PLOV_TOUCHES_FOREIGN_MEMORY void walk_list(void* list) {
  for (char* const volatile* at = static_cast<char* const volatile*>(list); *at; ++at) {
  }
}

// The C library counts the arguments in this process, so all of the vector must be readable, not its first word alone.
bool good_arguments(char* const* argv) {
  return argv && frame::probe_walk(walk_list, const_cast<char**>(argv));
}

// The order decides which code a caller with several mistakes gets, and that the out fields are already clear when
// the arguments are refused.
bool check(SpawnRecord& record, xmis_spawn_parameters* parms) {
  if (!writable(parms, sizeof *parms)) {
    spawn_trace('F', "   chk_spawn_intf: Invalid parms_ptr = %p", static_cast<void*>(parms));
    return refuse(record, XMIS_BAD_PARAMETERS);
  }
  if ((parms->flags & ~XMIS_SPAWN_WAIT) != 0) {
    spawn_trace('F', "   chk_spawn_intf: Bad flags= 0x%X", static_cast<uint32_t>(parms->flags));
    return refuse(record, XMIS_BAD_FLAGS);
  }
  if (!good_program(parms->program)) return refuse(record, XMIS_BAD_PROGRAM);
  if (parms->envp && !writable(parms->envp, sizeof *parms->envp)) {
    spawn_trace('F', "   chk_spawn_intf: Invalid envp = %p", static_cast<const void*>(parms->envp));
    return refuse(record, XMIS_BAD_ENVIRONMENT);
  }
  parms->pid = 0;
  parms->status = 0;
  parms->reason = 0;
  if (!good_arguments(parms->argv)) {
    spawn_trace('F', "   chk_spawn_intf: Invalid argv = %p", static_cast<const void*>(parms->argv));
    return refuse(record, XMIS_BAD_ARGUMENTS);
  }
  return true;
}

bool chk_spawn_intf(SpawnRecord& record, xmis_spawn_parameters* parms) {
  spawn_trace('D', "-> chk_spawn_intf:");
  const bool good = check(record, parms);
  spawn_trace('D', "<- chk_spawn_intf:");
  return good;
}

void do_spawn_pgm(SpawnRecord& record, xmis_spawn_parameters& parms) {
  spawn_trace('D', "-> do_spawn_pgm: Got Here for >%s<", parms.program);
  char* const* const environment = parms.envp ? parms.envp : environ;
  const int rc = posix_spawnp(&parms.pid, parms.program, nullptr, nullptr, parms.argv, environment);
  if (rc != 0) {
    spawn_trace('F', "   do_spawn_pgm: posix_spawnp returned rc= %u", static_cast<uint32_t>(rc));
    spawn_trace('F', "               :    reason is '%s'", strerror(rc));
    refuse(record, XMIS_SPAWN_FAILED);
    record.data = static_cast<uint32_t>(rc);
  } else if (parms.flags & XMIS_SPAWN_WAIT) {
    wait_for_end(record, parms);
  }
  spawn_trace('D', "<- do_spawn_pgm:");
}

}  // namespace
}  // namespace plov::loader

int32_t xmis_spawn_pgm(xmis_spawn_parameters* parameters, uint32_t* comprc) {
  using namespace plov::loader;
  spawn_trace('T', "-> xmis_spawn_pgm:");
  SpawnRecord record = {};
  strncpy(record.name, "xmis_spawn_pgm", sizeof record.name - 1);
  if (!writable(comprc, sizeof *comprc)) {
    record.sysrc = plov::frame::kUnusableComprc;
  } else {
    if (chk_spawn_intf(record, parameters)) do_spawn_pgm(record, *parameters);
    if (record.comprc != XMIS_BAD_PARAMETERS) parameters->reason = record.data;
    *comprc = record.comprc;
    if (record.sysrc != 0)
      spawn_trace('F', "   %s: src= 0x%X, crc= 0x%X, reason= %d", record.name, record.sysrc, record.comprc,
                  static_cast<int32_t>(record.data));
  }
  spawn_trace('T', "<- xmis_spawn_pgm: Leaving");
  return static_cast<int32_t>(record.sysrc);
}
