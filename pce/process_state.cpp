#include "pce/process_state.h"

#include "xpce.h"

pthread_key_t gl_thd_data_key;
int32_t gl_daemon_sock = -1;
int32_t gl_use_alt_stack;

namespace plov::pce {

int32_t gl_set_count;
std::atomic<int32_t> gl_thd_key_created;
std::atomic<uint16_t> gl_procend;
char coreDir[512];
std::atomic<uint32_t> gl_first_exception;

}  // namespace plov::pce
