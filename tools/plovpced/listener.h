// The daemon's end of the socket: made for its owner alone, and removed at the end.
#ifndef PLOV_PCED_LISTENER_H
#define PLOV_PCED_LISTENER_H

#include <sys/types.h>

#include <string>

#include "place.h"

namespace plov::pced {

// A lock file beside the socket says that a daemon runs; the kernel frees it when that one dies. A socket that a dead
// one left is replaced, whatever else stands there is not touched and ends the start.
class Listener {
 public:
  explicit Listener(const Place& place);  // throws, also where the directory is neither this user's nor root's
  ~Listener();
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  int descriptor() const { return socket_; }  // does not block

  // The next connection, which does not block either; -1 and errno when there is none.
  int accept() const;

 private:
  void lock();
  void remove_stale_socket() const;
  void listen();

  const Place place_;
  const std::string lock_path_;
  int lock_ = -1, socket_ = -1;
  ino_t inode_ = 0;
};

}  // namespace plov::pced

#endif
