// Timed sends of the process-control kernel. Signal-safe: the crash report goes this way.
#include <errno.h>
#include <poll.h>

#include <algorithm>

#include "pce.h"
#include "platform/host/deadline.h"
#include "platform/host/pce_failure.h"
#include "xtr.h"

namespace {

using plov::host::Deadline;

// Waits until there is room. 0, or the error.
int wait_for_room(int descriptor, const Deadline& deadline) {
  const int left = deadline.left();
  if (left == 0) return ETIMEDOUT;
  pollfd entry = {descriptor, POLLOUT, 0};
  const int ready = poll(&entry, 1, left);
  if (ready > 0) return 0;  // a peer that has gone too: the next send says so
  if (ready == 0) return ETIMEDOUT;
  return errno == EINTR ? 0 : errno;
}

int send_whole(int descriptor, const char* bytes, uint32_t length, uint32_t piece, uint32_t* sent, uint32_t timeout) {
  const Deadline deadline(timeout);
  while (*sent < length) {
    const uint32_t wanted = std::min(length - *sent, std::max(piece, 1u));
    // Never blocking: a peer that reads nothing, whatever the descriptor's own mode, must not outlast the time-out.
    const ssize_t count = send(descriptor, bytes + *sent, wanted, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count >= 0) {
      *sent += static_cast<uint32_t>(count);
      continue;
    }
    if (errno == EINTR) continue;
    if (errno != EAGAIN) return errno;
    if (const int error = wait_for_room(descriptor, deadline)) return error;
  }
  return 0;
}

}  // namespace

int32_t pce_tmr_send(pce_call_record* record, int32_t descriptor, const void* message, uint32_t length, uint32_t piece,
                     uint32_t* sent, uint32_t timeout) {
  const int saved_errno = errno;
  *sent = 0;
  const int error = send_whole(descriptor, static_cast<const char*>(message), length, piece, sent, timeout);
  if (error != 0) {
    xtr_trace("PCE____F:    pce_tmr_send: Error for socket %d, %u bytes of %u sent. Error is %d", descriptor, *sent,
              length, error);
    plov::host::system_failure(record, error);
  }
  errno = saved_errno;
  return error;
}
