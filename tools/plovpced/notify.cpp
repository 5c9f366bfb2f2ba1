#include "notify.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace plov::pced {

void notify_manager(const char* state) {
  const char* path = getenv("NOTIFY_SOCKET");
  sockaddr_un address = {AF_UNIX, {}};
  if (!path || (*path != '/' && *path != '@') || strlen(path) >= sizeof address.sun_path) return;
  memcpy(address.sun_path, path, strlen(path));
  if (*path == '@') address.sun_path[0] = '\0';  // of the abstract name space
  const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (descriptor < 0) return;
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + strlen(path));
  sendto(descriptor, state, strlen(state), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address), size);
  close(descriptor);
}

}  // namespace plov::pced
