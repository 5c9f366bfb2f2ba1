// Where the daemon's socket is, and who may be trusted there. Both ends look: the daemon before it listens, whoever
// asks it before it connects.
#ifndef PLOV_PCED_PLACE_H
#define PLOV_PCED_PLACE_H

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>

#include <string>

namespace plov::pced {

struct Place {
  std::string directory;
  std::string socket;  // its path
  sockaddr_un address;
  socklen_t address_size;
  uid_t owner;  // of the directory
  bool shared;  // others may write there too, as in /tmp, where nobody can replace what is another's
};

// In the platform's temporary directory. Throws when the path is too long for a socket, or when others may put
// something in another's place there.
Place find_place();

// This user and root.
bool trusted(uid_t user);

// The user at the other end of a local connection, and its process as this name space knows it.
struct Credentials {
  uid_t user;
  pid_t pid;
};
Credentials credentials_of(int descriptor);

// "connect: No such file or directory", thrown as std::runtime_error.
[[noreturn]] void fail_with_errno(const std::string& what);

}  // namespace plov::pced

#endif
