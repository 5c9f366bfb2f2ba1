// Alternate signal stacks of the process-control kernel.
#include <errno.h>

#include "pce.h"
#include "platform/host/pce_failure.h"
#include "xtr.h"

int32_t pce_sig_alt_stack(pce_call_record* record, const stack_t* stack) {
  if (sigaltstack(stack, nullptr) == 0) return 0;
  const int error = errno;
  xtr_trace("PCE____F:    pce_sig_alt_stack: Error for addr= %p, size= %u. Error is %d", stack->ss_sp,
            static_cast<uint32_t>(stack->ss_size), error);
  return plov::host::system_failure(record, error);
}
