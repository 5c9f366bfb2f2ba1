// The process-control daemon and its peers: a running one, connections to it, and what a crashed process sends.
#ifndef PLOV_TESTS_DAEMON_CLIENT_H
#define PLOV_TESTS_DAEMON_CLIENT_H

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "pce_wire.h"
#include "support/worker.h"

namespace test {

// In the working directory, which becomes PCE_TEMPDIR. Its words are read by line.
class Daemon {
 public:
  explicit Daemon(const std::string& options = "", const std::string& program = own_program("plovpced"));

  std::string line() const;                            // the next one; "" at the end
  std::string line_with(std::string_view text) const;  // skips others
  void stop() const;                                   // SIGTERM
  Process process;
};

std::string socket_path();

// One connection.
class Peer {
 public:
  Peer();
  ~Peer();
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  bool connected() const { return connected_; }
  void send(std::string_view bytes) const;
  std::optional<pce_wire_header> answer() const;  // none when the daemon has closed
  std::string rest() const;                       // of what it still sends
  int descriptor() const { return descriptor_; }

 private:
  int descriptor_;
  bool connected_;
};

std::string bytes_of(const void* message, size_t size);
std::string registration(const std::string& program, uint16_t type = 0);
std::string deregistration();

// Of a process that read address 16; `text` has a NUL behind each line.
std::unique_ptr<pce_wire_take_log> crash_report(const std::string& program);
inline std::string bytes_of(const pce_wire_take_log& report) {
  return bytes_of(&report, sizeof report);
}

}  // namespace test

#endif
