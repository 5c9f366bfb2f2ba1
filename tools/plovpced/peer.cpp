#include "peer.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace plov::pced {

Peer::Peer(int descriptor, PeerId given_id, pid_t given_pid, Clock::time_point now)
    : id(given_id), pid(given_pid), descriptor_(descriptor), since_(now) {}

Peer::~Peer() {
  close(descriptor_);
}

bool Peer::read(Clock::time_point now) {
  const std::span<uint8_t> room = reader.room();
  ssize_t count;
  do count = recv(descriptor_, room.data(), room.size(), 0);
  while (count < 0 && errno == EINTR);
  if (count > 0) {
    if (!reader.begun()) since_ = now;
    reader.advance(static_cast<size_t>(count));
    return true;
  }
  // A peer that died with answers unread ends in ECONNRESET, behind all that it had sent.
  if (count == 0 || errno != EAGAIN) at_end_ = true;
  return false;
}

void Peer::give_memory(ReportPtr memory, Clock::time_point now) {
  reader.give_memory(std::move(memory));
  since_ = now;
}

void Peer::answer(const pce_wire_header& request, std::string_view more) {
  const pce_wire_header header = {static_cast<uint32_t>(sizeof header + more.size()), request.code + PCE_ACK, 0,
                                  request.pid, request.tid};
  if (output_.empty()) since_ = Clock::now();
  output_.append(reinterpret_cast<const char*>(&header), sizeof header);
  output_ += more;
  write();
}

void Peer::write() {
  while (!output_.empty()) {
    const ssize_t count = send(descriptor_, output_.data(), output_.size(), MSG_NOSIGNAL);
    if (count > 0) {
      output_.erase(0, static_cast<size_t>(count));
    } else if (errno == EAGAIN) {
      return;
    } else if (errno != EINTR) {
      output_.clear();
    }
  }
}

std::optional<Clock::time_point> Peer::owing_since(bool registered) const {
  // A report that waits for memory is owed by this daemon.
  if (reader.state() == MessageReader::State::needs_memory) return std::nullopt;
  if (registered && !reader.begun() && output_.empty()) return std::nullopt;
  return since_;
}

}  // namespace plov::pced
