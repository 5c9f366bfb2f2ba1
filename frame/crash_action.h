// The process's action for a signal, as it is when nothing stands in front of it. The log's crash guard displaces the
// one of SIGSEGV for the length of an operation and puts back what it remembers; whoever sets or reads the action
// meanwhile means the one remembered. All under xtr_mutex_sem, which the guard's owner takes too.
#ifndef PLOV_FRAME_CRASH_ACTION_H
#define PLOV_FRAME_CRASH_ACTION_H

#include <signal.h>

namespace plov::frame {

// The guard is in place and remembers the action there; null: it is gone.
void displace_crash_action(struct sigaction* remembered);

// As sigaction.
int read_crash_action(int signal, struct sigaction* action);
int write_crash_action(int signal, const struct sigaction* action);

// Whether the process has ever handled crashes on alternate stacks: then a thread whose stack has overflowed needs one
// also while another thread's probe has its own action in place.
bool crashes_on_alternate_stacks();

}  // namespace plov::frame

#endif
