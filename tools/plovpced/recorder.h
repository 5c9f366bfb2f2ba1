// The thread that records reports. It waits for the log lock, which a process may hold that waits for this daemon's
// answer: the thread that answers never does.
#ifndef PLOV_PCED_RECORDER_H
#define PLOV_PCED_RECORDER_H

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "process_table.h"
#include "report_pool.h"

namespace plov::pced {

class Recorder {
 public:
  // `wake` is an eventfd, written after each report.
  explicit Recorder(int wake);
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;
  ~Recorder();  // records what is left

  void record(ReportPtr report, PeerId peer);

  struct Done {
    PeerId peer;
    pce_wire_header header;
    bool recorded;
  };
  std::vector<Done> take_done();  // since the last call

  bool idle() const;

  // Records what is left and ends the thread. False when the log does not let it within the time: the text of what is
  // left is told, and the process has to end without more.
  bool finish(std::chrono::milliseconds time);

 private:
  void run();

  struct Work {
    ReportPtr report;
    PeerId peer;
  };

  const int wake_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Work> queue_;  // the first one is being recorded, and stays until it is
  std::vector<Done> done_;
  bool stop_ = false, ended_ = false;
  std::thread thread_;
};

}  // namespace plov::pced

#endif
