// A process-control daemon for tests: it serves on the test's own thread until a child has ended, and keeps what came.
#ifndef PLOV_TESTS_PCE_DAEMON_H
#define PLOV_TESTS_PCE_DAEMON_H

#include <signal.h>

#include <memory>
#include <string>
#include <vector>

#include "pce_wire.h"
#include "support/child.h"

namespace test {

inline constexpr int kTheTen[] = {SIGABRT, SIGBUS,  SIGFPE,  SIGILL,  SIGQUIT,
                                  SIGPIPE, SIGSEGV, SIGTERM, SIGXCPU, SIGXFSZ};

struct Report {
  pce_wire_header header;
  uint32_t report_id;
  int signal;
  std::vector<std::string> lines;
  std::string backtrace;

  // The rest of the line that begins so, "" when there is none.
  std::string after(const std::string& beginning) const;
};

// What came of a child.
struct Visit {
  int end = -1;                 // as wait_for
  std::vector<uint32_t> codes;  // of the messages, in their order
  std::vector<pce_wire_register> registrations;
  std::vector<Report> reports;
  std::shared_ptr<pce_wire_take_log> newest;  // the last report, every byte of it
};

class PceDaemon {
 public:
  enum Manner { kAnswers, kSlow, kHangsUpInsideTheReport, kLeavesUnanswered, kReadsLater };

  // Listens in the working directory and makes that the platform's temporary directory.
  explicit PceDaemon(Manner manner = kAnswers);
  ~PceDaemon();
  PceDaemon(const PceDaemon&) = delete;
  PceDaemon& operator=(const PceDaemon&) = delete;

  static void make_plain();  // the signals' actions in a child, which a sanitizer has changed

  // Serves until the child has ended and all that it and its own children have sent is read.
  Visit serve(pid_t child);
  template <class Function>
  Visit serve_child(Function function) {
    return serve(start_child([&] {
      make_plain();
      return function();
    }));
  }

 private:
  struct Peer {
    int socket;
    std::string bytes;
  };
  bool take_messages(Peer& peer, Visit& visit);
  bool read_from(Peer& peer, Visit& visit);

  Manner manner_;
  std::string path_;
  int listener_;
};

}  // namespace test

#endif
