// The log's crash guard: a SIGSEGV action that frees the log lock when the thread that holds it dies of a fault. The
// exported step is xlog_sig_handler.
#ifndef PLOV_LOG_GUARD_H
#define PLOV_LOG_GUARD_H

namespace plov::log {

// In a forked child: the guard of a parent's thread is taken down. Signal-safe.
void forget_guard_in_child();

}  // namespace plov::log

#endif
