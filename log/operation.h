// One log operation is one scope: log lock, crash guard, open file, given back in reverse order on every path.
//
//   Operation operation(request.target_session, sizeof request.target_session);
//   uint32_t code;
//   if (!operation.lock(&code)) ...            lock and guard
//   else if (operation.open() != 0) ...        operation.err.file_handle is the stream
//   ...
//   const int32_t closed = operation.end();    or the destructor does it
//
// Operations nest: the thread that holds the lock may begin another one (the error handler records a log of its own).
// Each takes down only the guard that it installed.
#ifndef PLOV_LOG_OPERATION_H
#define PLOV_LOG_OPERATION_H

#include <stdint.h>

#include "xlog.h"

namespace plov::log {

class Operation {
 public:
  // At most 2,047 characters of `session` are taken; it need not be terminated within `size` bytes.
  Operation(const char* session, uint32_t size);
  ~Operation() { end(); }
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;

  // Takes the lock and installs the guard. False with the semaphore's code when the lock cannot be had.
  bool lock(uint32_t* code);

  // Opens the file into err.file_handle. The result is xlog_open_file's.
  int32_t open() { return xlog_open_file(&err); }

  // Closes what is open, takes the guard down, gives the lock back. An operation that never took the lock issues the
  // release all the same, unless its thread holds an outer lock. Result: that of the close. May be called again, to no
  // effect.
  int32_t end();

  xlog_err_interface err;

 private:
  bool locked_ = false;
  bool guarded_ = false;
  bool ended_ = false;
};

}  // namespace plov::log

#endif
