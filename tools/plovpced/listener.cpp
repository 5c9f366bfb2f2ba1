#include "listener.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

namespace plov::pced {

Listener::Listener(const Place& place) : place_(place), lock_path_(place.socket + ".lock") {
  if (!trusted(place.owner))
    throw std::runtime_error(place.directory + ": belongs to user " + std::to_string(place.owner));
  lock();
  try {
    remove_stale_socket();
    listen();
  } catch (...) {
    if (socket_ >= 0) close(socket_);
    unlink(lock_path_.c_str());
    close(lock_);
    throw;
  }
}

Listener::~Listener() {
  struct stat status;
  if (lstat(place_.socket.c_str(), &status) == 0 && status.st_ino == inode_) unlink(place_.socket.c_str());
  close(socket_);
  unlink(lock_path_.c_str());
  close(lock_);
}

void Listener::lock() {
  for (;;) {
    lock_ = open(lock_path_.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (lock_ < 0) fail_with_errno(lock_path_);
    struct stat held = {}, named = {};
    if (fstat(lock_, &held) == 0 && held.st_uid == geteuid() && flock(lock_, LOCK_EX | LOCK_NB) == 0) {
      // The one before may have removed the file between our opening and our locking it.
      if (stat(lock_path_.c_str(), &named) == 0 && named.st_ino == held.st_ino && named.st_dev == held.st_dev) return;
      close(lock_);
      continue;
    }
    close(lock_);
    throw std::runtime_error(held.st_uid == geteuid()
                                 ? "a daemon runs already: " + lock_path_ + " is locked"
                                 : lock_path_ + ": belongs to user " + std::to_string(held.st_uid));
  }
}

void Listener::remove_stale_socket() const {
  struct stat status;
  if (lstat(place_.socket.c_str(), &status) != 0) return;
  if (status.st_uid != geteuid())
    throw std::runtime_error(place_.socket + ": belongs to user " + std::to_string(status.st_uid));
  if (!S_ISSOCK(status.st_mode)) throw std::runtime_error(place_.socket + ": is there already and no socket");
  if (unlink(place_.socket.c_str()) != 0) fail_with_errno(place_.socket);
}

void Listener::listen() {
  socket_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (socket_ < 0) fail_with_errno("socket");
  // The owner's alone from the moment it is there.
  const mode_t mask = umask(0177);
  const int bound = bind(socket_, reinterpret_cast<const sockaddr*>(&place_.address), place_.address_size);
  const int error = errno;
  umask(mask);
  errno = error;
  if (bound != 0) fail_with_errno(place_.socket);
  struct stat status;
  if (lstat(place_.socket.c_str(), &status) != 0) fail_with_errno(place_.socket);
  inode_ = status.st_ino;
  if (::listen(socket_, SOMAXCONN) != 0) fail_with_errno("listen");
}

int Listener::accept() const {
  return accept4(socket_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
}

}  // namespace plov::pced
