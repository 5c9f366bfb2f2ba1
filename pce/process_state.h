// What process control knows of the process. All of it changes under xtr_mutex_sem alone; a crash reads it as it is.
#ifndef PLOV_PCE_PROCESS_STATE_H
#define PLOV_PCE_PROCESS_STATE_H

#include <stdint.h>

#include <atomic>

namespace plov::pce {

extern int32_t gl_set_count;  // active set-ups of all threads
extern std::atomic<int32_t> gl_thd_key_created;
extern std::atomic<uint16_t> gl_procend;          // the process type; 0 without a set-up
extern char coreDir[512];                         // where core files go; "" when the path table does not say
extern std::atomic<uint32_t> gl_first_exception;  // 1 from the process's first crash on

}  // namespace plov::pce

#endif
