#include "loader/wait_for_end.h"

#include <errno.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

#include "frame/call.h"

namespace plov::loader {
namespace {

constexpr uint32_t kPause = 5;  // seconds

void fail(SpawnRecord& record, uint32_t code, int reason) {
  record.comprc = code;
  record.sysrc = frame::kRefused;
  record.data = static_cast<uint32_t>(reason);
}

void poll(SpawnRecord& record, xmis_spawn_parameters& parms) {
  uint32_t time_left = parms.time_limit;
  const uint32_t steps_allowed = parms.time_limit / kPause + 1;
  for (uint32_t step = 1;; ++step) {
    int status = 0;
    const pid_t ended = waitpid(parms.pid, &status, WNOHANG);
    if (ended < 0) {
      const int reason = errno;
      spawn_trace('F', "   wait_for_end: waitpid returned -1, reason is %s", strerror(reason));
      return fail(record, reason == ECHILD ? XMIS_CHILD_VANISHED : XMIS_WAIT_FAILED, reason);
    }
    if (ended > 0) {
      spawn_trace('F', "   wait_for_end: waitpid returned 0x%X, status= 0x%X", static_cast<uint32_t>(ended),
                  static_cast<uint32_t>(status));
      spawn_trace('F', "               : WIFEXITED = %u,  WEXITSTATUS= %u, WIFSIGNALED= %u, WTERMSIG= %u",
                  static_cast<uint32_t>(WIFEXITED(status)), static_cast<uint32_t>(WEXITSTATUS(status)),
                  static_cast<uint32_t>(WIFSIGNALED(status)), static_cast<uint32_t>(WTERMSIG(status)));
      parms.status = status;
      return;
    }
    spawn_trace('F', "   wait_for_end: waitpid returned 0 for pid 0x%X, iteration %u, time_left= %u",
                static_cast<uint32_t>(parms.pid), step, time_left);
    if (step > steps_allowed) return fail(record, XMIS_STILL_RUNNING, 0);
    // A limit of 0 makes one pause of 0 seconds, so there is a second look.
    sleep(std::min(time_left, kPause));
    time_left -= kPause;  // wraps below 0, and no pause is left then
  }
}

}  // namespace

void wait_for_end(SpawnRecord& record, xmis_spawn_parameters& parms) {
  spawn_trace('D', "-> wait_for_end: Got Here for pid 0x%X", static_cast<uint32_t>(parms.pid));
  poll(record, parms);
  spawn_trace('D', "<- wait_for_end:");
}

}  // namespace plov::loader
