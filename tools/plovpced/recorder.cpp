#include "recorder.h"

#include <unistd.h>

#include <string>
#include <utility>

#include "codes.h"
#include "escape.h"
#include "report_entry.h"
#include "say.h"

namespace plov::pced {
namespace {

std::string title(const pce_wire_take_log& report) {
  return "report of process " + std::to_string(+report.header.pid) + ", signal " + std::to_string(+report.signal);
}

// What the log does not take is not lost: it goes where this daemon's words go.
void tell_text(const pce_wire_take_log& report) {
  for (const std::string& line : report_lines(report)) say("  | " + ctl::escape(line));
}

bool record_entry(const pce_wire_take_log& report) {
  ReportEntry entry(report);
  uint32_t comprc = 0;
  const int32_t sysrc = xlog_microcode_log(&entry.request(), &comprc);
  if (sysrc != 0) {
    say(title(report) +
        " is not in the log: xlog_microcode_log: " + ctl::explain_result(ctl::Family::xlog, sysrc, comprc));
    tell_text(report);
  } else if (entry.request().timestamp.seconds == 0) {
    say(title(report) + " is not in the log: system information field 16 says so");
  } else {
    say(title(report) + " is in the log");
  }
  return sysrc == 0;
}

}  // namespace

Recorder::Recorder(int wake) : wake_(wake), thread_([this] { run(); }) {}

Recorder::~Recorder() {
  if (!thread_.joinable()) return;
  {
    const std::lock_guard guard(mutex_);
    stop_ = true;
    changed_.notify_all();
  }
  thread_.join();
}

void Recorder::record(ReportPtr report, PeerId peer) {
  const std::lock_guard guard(mutex_);
  queue_.push_back({std::move(report), peer});
  changed_.notify_all();
}

std::vector<Recorder::Done> Recorder::take_done() {
  const std::lock_guard guard(mutex_);
  return std::exchange(done_, {});
}

bool Recorder::idle() const {
  const std::lock_guard guard(mutex_);
  return queue_.empty();
}

void Recorder::run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return stop_ || !queue_.empty(); });
    if (queue_.empty()) break;
    const Work& work = queue_.front();
    lock.unlock();
    const bool recorded = record_entry(*work.report);
    lock.lock();
    done_.push_back({work.peer, work.report->header, recorded});
    queue_.pop_front();
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t ignored = write(wake_, &one, sizeof one);
  }
  ended_ = true;
  changed_.notify_all();
}

bool Recorder::finish(std::chrono::milliseconds time) {
  std::unique_lock lock(mutex_);
  stop_ = true;
  changed_.notify_all();
  if (changed_.wait_for(lock, time, [this] { return ended_; })) return true;
  say("the log cannot be had; " + std::to_string(queue_.size()) + " reports are not in it");
  for (const Work& work : queue_) {
    say(title(*work.report) + ":");
    tell_text(*work.report);
  }
  return false;
}

}  // namespace plov::pced
