#include "frame/caller_memory.h"

#include <errno.h>
#include <string.h>
#include <sys/uio.h>

#include "xtr.h"

namespace plov::frame {
namespace {

using Transfer = ssize_t (*)(pid_t, const struct iovec*, unsigned long, const struct iovec*, unsigned long,
                             unsigned long);

// Without a guard (this thread holds the mutex of the probes) the kernel copies, which is slower. One that refuses the
// call (seccomp, an old kernel) leaves the probe's word to be taken: plain copy.
bool transfer(Transfer call, void* own, void* foreign, size_t size, void* to, const void* from) {
  if (size == 0) return true;
  const Copied copied = copy_foreign(to, from, size);
  if (copied != Copied::unknown) return copied == Copied::whole;
  const struct iovec local = {own, size}, remote = {foreign, size};
  const int saved_errno = errno;
  const ssize_t done = call(static_cast<pid_t>(xtr_getpid()), &local, 1, &remote, 1, 0);
  const bool refused = done < 0 && errno != EFAULT;
  errno = saved_errno;
  if (refused) memcpy(to, from, size);
  return refused || static_cast<size_t>(done) == size;
}

}  // namespace

bool take_from_caller(void* to, const void* from, size_t size, Access access) {
  bool copied;
  return probe_and_copy(from, size, access, to, &copied) == 0 && (copied || copy_from_caller(to, from, size));
}

bool copy_from_caller(void* to, const void* from, size_t size) {
  return transfer(process_vm_readv, to, const_cast<void*>(from), size, to, from);
}

bool copy_to_caller(void* to, const void* from, size_t size) {
  return transfer(process_vm_writev, const_cast<void*>(from), to, size, to, from);
}

}  // namespace plov::frame
