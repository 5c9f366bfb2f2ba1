// A forked child: its parent's connection is not its own, and its parent's crash neither. Its set-up stays, so that its
// own crash is reported.
#include <pthread.h>
#include <unistd.h>

#include "pce/process_state.h"
#include "xpce.h"

namespace plov::pce {
namespace {

void in_forked_child() {
  if (gl_daemon_sock >= 0) close(gl_daemon_sock);
  gl_daemon_sock = -1;
  gl_first_exception.store(0);
}

__attribute__((constructor)) void watch_forks() {
  pthread_atfork(nullptr, nullptr, in_forked_child);
}

}  // namespace
}  // namespace plov::pce
