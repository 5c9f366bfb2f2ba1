#include "place.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "pce.h"
#include "pce_wire.h"

namespace plov::pced {

void fail_with_errno(const std::string& what) {
  throw std::runtime_error(what + ": " + strerror(errno));
}

bool trusted(uid_t user) {
  return user == geteuid() || user == 0;
}

Credentials credentials_of(int descriptor) {
  ucred peer = {0, static_cast<uid_t>(-1), static_cast<gid_t>(-1)};
  socklen_t size = sizeof peer;
  getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &size);
  return {peer.uid, peer.pid};
}

Place find_place() {
  pce_call_record record = {};
  char directory[4096], path[sizeof directory + sizeof PCE_DAEMON_SOCKET];
  if (pce_find_tempdir(&record, directory, sizeof directory) != 0) {
    errno = static_cast<int>(record.data);
    fail_with_errno("PCE_TEMPDIR");
  }
  snprintf(path, sizeof path, PCE_DAEMON_SOCKET, directory);
  Place place = {directory, path, {AF_UNIX, {}}, 0, 0, false};
  if (place.socket.size() >= sizeof place.address.sun_path)
    throw std::runtime_error(place.socket + ": longer than the path of a socket may be");
  memcpy(place.address.sun_path, path, place.socket.size());
  place.address_size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + place.socket.size());

  struct stat status;
  if (stat(directory, &status) != 0) fail_with_errno(place.directory);
  if (!S_ISDIR(status.st_mode)) throw std::runtime_error(place.directory + ": not a directory");
  place.owner = status.st_uid;
  place.shared = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
  if (place.shared && !(status.st_mode & S_ISVTX))
    throw std::runtime_error(place.directory + ": others may write there");
  return place;
}

}  // namespace plov::pced
