// One connection: what comes in, what is to go out, and how long it has been owing something.
#ifndef PLOV_PCED_PEER_H
#define PLOV_PCED_PEER_H

#include <chrono>
#include <optional>
#include <string>

#include "message_reader.h"
#include "process_table.h"

namespace plov::pced {

using Clock = std::chrono::steady_clock;

class Peer {
 public:
  Peer(int descriptor, PeerId id, pid_t pid, Clock::time_point now);
  ~Peer();
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  const PeerId id;
  const pid_t pid;
  MessageReader reader;

  int descriptor() const { return descriptor_; }

  // Until its answers are taken nothing more is read from it: it cannot make this process hold more of them.
  bool wants_to_read() const { return !at_end_ && output_.empty() && reader.state() == MessageReader::State::reading; }
  bool wants_to_write() const { return !output_.empty(); }
  bool at_end() const { return at_end_; }

  // Reads once, as far as reader has room. False when there is nothing, now or ever.
  bool read(Clock::time_point now);

  // For the report that reader needs memory for. Its sender's time begins now.
  void give_memory(ReportPtr memory, Clock::time_point now);

  // An answer to a peer that has gone is dropped; what it has sent is still read.
  void answer(const pce_wire_header& request, std::string_view more = {});
  void write();

  // Since when a message, its first one, or the taking of an answer is due. `registered`: it may be silent.
  std::optional<Clock::time_point> owing_since(bool registered) const;

 private:
  const int descriptor_;
  std::string output_;
  Clock::time_point since_;  // of the connection, the last whole message, or the first byte of one
  bool at_end_ = false;
};

}  // namespace plov::pced

#endif
