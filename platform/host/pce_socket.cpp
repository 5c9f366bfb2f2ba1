// Local sockets of the process-control kernel.
#include <errno.h>
#include <poll.h>
#include <sys/time.h>
#include <unistd.h>

#include "pce.h"
#include "platform/host/deadline.h"
#include "platform/host/pce_failure.h"
#include "xtr.h"

namespace {

using plov::host::Deadline;
using plov::host::system_failure;

// A listener that no longer accepts, with its queue full, must not hang whoever starts.
constexpr uint32_t kConnectTime = 30000;

// Waits for a connection under way. 0, or its error.
int finish(int descriptor, const Deadline& deadline) {
  pollfd entry = {descriptor, POLLOUT, 0};
  int ready;
  do ready = poll(&entry, 1, deadline.left());
  while (ready < 0 && errno == EINTR);
  if (ready <= 0) return ready == 0 ? ETIMEDOUT : errno;
  int error = 0;
  socklen_t size = sizeof error;
  return getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

// 0 is no limit to the kernel.
void limit_waiting(int descriptor, int milliseconds) {
  const timeval limit = {milliseconds / 1000, milliseconds % 1000 * 1000};
  setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

int connect_whole(int descriptor, const sockaddr* address, socklen_t length) {
  const Deadline deadline(kConnectTime);
  for (;;) {
    const int left = deadline.left();
    if (left == 0) return ETIMEDOUT;
    limit_waiting(descriptor, left);
    if (connect(descriptor, address, length) == 0 || errno == EISCONN) return 0;
    // A local connect that a signal interrupts has not begun, one of another family goes on by itself.
    if (errno == EALREADY || errno == EINPROGRESS) return finish(descriptor, deadline);
    if (errno == EAGAIN) return ETIMEDOUT;
    if (errno != EINTR) return errno;
  }
}

}  // namespace

int32_t pce_socket(pce_call_record* record, int32_t family, int32_t type, int32_t protocol, int32_t* descriptor) {
  *descriptor = socket(family, type | SOCK_CLOEXEC, protocol);
  if (*descriptor >= 0) return 0;
  const int error = errno;
  xtr_trace("PCE____F:    pce_socket: Error for family= %d, type= %d. Error is %d", family, type, error);
  return system_failure(record, error);
}

int32_t pce_connect_hard(pce_call_record* record, int32_t descriptor, const struct sockaddr* address, uint32_t length) {
  const int error = connect_whole(descriptor, address, length);
  limit_waiting(descriptor, 0);
  if (error == 0) return 0;
  xtr_trace("PCE____F:    pce_connect_hard: Error for socket %d. Error is %d", descriptor, error);
  return system_failure(record, error);
}

int32_t pce_soclose(pce_call_record* record, int32_t descriptor) {
  // The descriptor is gone after EINTR too; closing it again would close what another thread has opened meanwhile.
  if (close(descriptor) == 0 || errno == EINTR) return 0;
  const int error = errno;
  xtr_trace("PCE____F:    pce_soclose: Error for socket %d. Error is %d", descriptor, error);
  return system_failure(record, error);
}
