// The log takes probes, and a probe takes xtr_mutex_sem: an event raised under that mutex waits in its thread.
#ifndef PLOV_HOST_PCE_QUEUE_H
#define PLOV_HOST_PCE_QUEUE_H

namespace plov::host {

// The thread has taken xtr_mutex_sem: its events wait.
void hold_events();

// It has released it: they are recorded, oldest first.
void release_events();

}  // namespace plov::host

#endif
