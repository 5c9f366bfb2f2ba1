// Who is inside the error handler. The exported step is xlog_error_handler.
#ifndef PLOV_LOG_ERROR_HANDLER_H
#define PLOV_LOG_ERROR_HANDLER_H

namespace plov::log {

// This thread's handlers do not return: it crashed in one, or is the child of a fork. Left counted they would silence
// every later one. Signal-safe.
void forget_handlers_in_crash();
void forget_handlers_in_child();

}  // namespace plov::log

#endif
