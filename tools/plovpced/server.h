// The loop that answers. One thread, which waits for nothing but its descriptors.
#ifndef PLOV_PCED_SERVER_H
#define PLOV_PCED_SERVER_H

#include <poll.h>

#include <list>
#include <vector>

#include "listener.h"
#include "peer.h"
#include "process_table.h"
#include "recorder.h"
#include "report_pool.h"

namespace plov::pced {

class Server {
 public:
  struct Options {
    std::chrono::milliseconds patience{60000};  // for a message, and for the taking of an answer
    bool verbose = false;                       // tells of every process that comes and goes
  };

  // `stop` becomes readable when it is to end, `wake` is the recorder's.
  Server(const Listener& listener, ReportPool& pool, Recorder& recorder, int stop, int wake, const Options& options);

  // Until `stop`; then what peers have sent already is still taken. False when there was no time for all of it.
  bool run();

 private:
  int wait();
  int time_left() const;
  bool under_way() const;
  void accept_all();
  void serve(Peer& peer);
  void take(Peer& peer);
  void record(Peer& peer, ReportPtr report);
  void acknowledge_recorded();
  bool finished(Peer& peer);
  void forget(Peer& peer);
  std::string name_of(const Peer& peer) const;

  const Listener& listener_;
  ReportPool& pool_;
  Recorder& recorder_;
  const int stop_, wake_;
  const Options options_;
  const size_t peer_limit_;
  ProcessTable table_;
  std::list<Peer> peers_;
  PeerId next_id_ = 1;
  std::vector<pollfd> waiting_;  // stop, wake, listener, then the peers in their order
  bool accept_later_ = false;    // there were no descriptors left: not before one is given back
  std::optional<Clock::time_point> stop_until_;
  Clock::time_point now_ = Clock::now();  // of this round
};

}  // namespace plov::pced

#endif
