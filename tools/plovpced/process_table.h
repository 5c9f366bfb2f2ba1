// Which processes are set up and alive, and what has been asked of the daemon. No I/O.
#ifndef PLOV_PCED_PROCESS_TABLE_H
#define PLOV_PCED_PROCESS_TABLE_H

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <map>
#include <optional>
#include <string>

#include "pce_wire.h"

namespace plov::pced {

// A connection, never given twice.
using PeerId = uint64_t;

struct Process {
  pid_t pid;         // as the kernel tells it
  uint32_t own_pid;  // as the process tells it: another one in a PID name space of its own
  uint32_t tid;      // of the thread that registered
  uint16_t type;     // of pce_wire_register
  std::string program;
  time_t since;
  uint32_t reports;  // exception reports that it has sent
};

struct Counters {
  uint64_t registered, deregistered;
  uint64_t vanished;  // ended without de-registering
  uint64_t reports, recorded, failed;
  uint64_t refused;  // strangers, and peers that sent no message or took too long for one
};

class ProcessTable {
 public:
  explicit ProcessTable(time_t now) : started_(now) {}

  // Again over the same connection: the newer one stands.
  void add(PeerId peer, pid_t pid, const pce_wire_register& registration, time_t now);
  void remove(PeerId peer);  // has de-registered
  void report(PeerId peer);  // has sent one

  // The connection is gone, and with it the process. The entry, when it had not been removed.
  std::optional<Process> forget(PeerId peer);

  const Process* find(PeerId peer) const;
  bool knows(PeerId peer) const { return processes_.contains(peer); }
  size_t size() const { return processes_.size(); }
  Counters& counters() { return counters_; }

  // {"daemon": {...}, "processes": [...]}, oldest first; what is no UTF-8 in a name is replaced.
  std::string to_json() const;

 private:
  std::map<PeerId, Process> processes_;
  Counters counters_ = {};
  time_t started_;
};

const char* process_type_name(uint16_t type);  // "temporary", ...; "unknown"

}  // namespace plov::pced

#endif
