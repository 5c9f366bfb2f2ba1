// What guards the process's own attaching and loading of the map, and what holds for a thread inside: no cancellation,
// failures that belong into the log wait (recording one may read a field).
#ifndef PLOV_SIM_PROCESS_MUTEX_H
#define PLOV_SIM_PROCESS_MUTEX_H

namespace plov::sim {

// Counted: the thread's cancellation comes back with the last release.
void begin_guarded();
void end_guarded();

// Does without the mutex on a thread that holds it already (a signal handler that interrupted a load): nothing hangs.
class ProcessLock {
 public:
  ProcessLock();
  ~ProcessLock();
  ProcessLock(const ProcessLock&) = delete;
  ProcessLock& operator=(const ProcessLock&) = delete;
  bool held() const { return held_; }

 private:
  bool held_;
};

}  // namespace plov::sim

#endif
