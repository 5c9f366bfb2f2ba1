#include "server.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "escape.h"
#include "say.h"

namespace plov::pced {
namespace {

using std::chrono::milliseconds;

constexpr size_t kMostPeers = 1000;
constexpr size_t kOwnDescriptors = 64;          // of the log, the trace, this program
constexpr unsigned kReadsInTurn = 64;           // then the next peer
constexpr milliseconds kStopTime(10000);        // for what is under way at the end
constexpr milliseconds kDescriptorPause(1000);  // before the next try to accept

// As many as the limit of this process lets be, which is raised as far as it may be.
size_t peer_limit() {
  rlimit limit = {};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return kMostPeers;
  constexpr rlim_t kWanted = kMostPeers + kOwnDescriptors;
  if (limit.rlim_cur < kWanted) {
    limit.rlim_cur = std::min(limit.rlim_max, kWanted);
    setrlimit(RLIMIT_NOFILE, &limit);
  }
  return limit.rlim_cur < 2 * kOwnDescriptors ? kOwnDescriptors / 2
                                              : std::min<size_t>(limit.rlim_cur - kOwnDescriptors, kMostPeers);
}

void empty(int descriptor) {
  uint64_t ignored[16];
  while (read(descriptor, ignored, sizeof ignored) > 0) {
  }
}

}  // namespace

Server::Server(const Listener& listener, ReportPool& pool, Recorder& recorder, int stop, int wake,
               const Options& options)
    : listener_(listener),
      pool_(pool),
      recorder_(recorder),
      stop_(stop),
      wake_(wake),
      options_(options),
      peer_limit_(peer_limit()),
      table_(time(nullptr)) {}

bool Server::run() {
  for (;;) {
    const int ready = wait();
    now_ = Clock::now();
    if (waiting_[0].revents != 0 && !stop_until_) stop_until_ = now_ + kStopTime;
    if (waiting_[1].revents != 0) {
      empty(wake_);
      acknowledge_recorded();
    }
    size_t place = 3;
    for (Peer& peer : peers_) {
      const int events = waiting_[place++].revents;
      if (events & (POLLOUT | POLLERR)) peer.write();
      if (events != 0 || peer.reader.state() == MessageReader::State::needs_memory) serve(peer);
    }
    std::erase_if(peers_, [this](Peer& peer) { return finished(peer); });
    if (waiting_[2].revents != 0) accept_all();
    if (stop_until_ && ((ready == 0 && !under_way()) || now_ >= *stop_until_)) break;
  }
  unsigned left = 0;
  for (Peer& peer : peers_) {
    if (ReportPtr cut = peer.reader.take_cut_report())
      record(peer, std::move(cut));
    else if (peer.reader.begun() && peer.reader.header().code == SMSG_TAKE_LOG_REQ)
      ++left;
  }
  if (left > 0) say(std::to_string(left) + " reports were under way and are lost");
  return left == 0;
}

int Server::wait() {
  const bool accepting = peers_.size() < peer_limit_ && !accept_later_;
  waiting_.assign({{stop_until_ ? -1 : stop_, POLLIN, 0},
                   {wake_, POLLIN, 0},
                   {accepting ? listener_.descriptor() : -1, POLLIN, 0}});
  for (const Peer& peer : peers_) {
    const int events = (peer.wants_to_read() ? POLLIN : 0) | (peer.wants_to_write() ? POLLOUT : 0);
    // Asked for nothing, poll would still tell again and again that a peer has gone.
    waiting_.push_back({events ? peer.descriptor() : -1, static_cast<short>(events), 0});
  }
  const int ready = poll(waiting_.data(), waiting_.size(), time_left());
  accept_later_ = false;
  return ready;
}

int Server::time_left() const {
  std::optional<Clock::time_point> next;
  const auto consider = [&](Clock::time_point time) { next = next ? std::min(*next, time) : time; };
  for (const Peer& peer : peers_)
    if (const auto since = peer.owing_since(table_.knows(peer.id))) consider(*since + options_.patience);
  if (accept_later_) consider(now_ + kDescriptorPause);
  if (stop_until_) consider(under_way() ? *stop_until_ : now_);
  if (!next) return -1;
  // Rounded up: woken too early this thread would spin.
  const auto left = std::chrono::ceil<milliseconds>(*next - Clock::now()).count();
  return static_cast<int>(std::clamp<int64_t>(left, 0, 3600000));
}

bool Server::under_way() const {
  return !recorder_.idle() ||
         std::any_of(peers_.begin(), peers_.end(), [](const Peer& peer) { return peer.reader.begun(); });
}

void Server::accept_all() {
  while (peers_.size() < peer_limit_) {
    const int descriptor = listener_.accept();
    if (descriptor < 0) {
      if (errno == EINTR || errno == ECONNABORTED) continue;
      accept_later_ = errno != EAGAIN;
      if (accept_later_) say_sparingly(std::string("accept: ") + strerror(errno));
      return;
    }
    const Credentials peer = credentials_of(descriptor);
    if (trusted(peer.user)) {
      peers_.emplace_back(descriptor, next_id_++, peer.pid, now_);
      continue;
    }
    close(descriptor);
    ++table_.counters().refused;
    say_sparingly("process " + std::to_string(peer.pid) + " of user " + std::to_string(peer.user) + " is refused");
  }
}

void Server::serve(Peer& peer) {
  using State = MessageReader::State;
  for (unsigned reads = 0; reads < kReadsInTurn; ++reads) {
    if (peer.reader.state() == State::needs_memory)
      if (ReportPtr memory = pool_.take()) peer.give_memory(std::move(memory), now_);
    if (!peer.wants_to_read() || !peer.read(now_)) return;
    if (peer.reader.state() == State::complete) take(peer);
  }
}

void Server::take(Peer& peer) {
  const pce_wire_header request = peer.reader.header();
  switch (request.code) {
    case SMSG_TAKE_LOG_REQ:
      record(peer, peer.reader.take_report());
      peer.reader.next();
      return;  // acknowledged when it is in the log
    case SMSG_REGISTER_REQ:
      table_.add(peer.id, peer.pid, peer.reader.registration(), time(nullptr));
      if (options_.verbose) say(name_of(peer) + " is registered");
      break;
    case SMSG_DEREGISTER_REQ:
      if (options_.verbose) say(name_of(peer) + " has de-registered");
      table_.remove(peer.id);
      break;
    default:
      break;
  }
  peer.reader.next();
  peer.answer(request, request.code == kTableRequest ? table_.to_json() : "");
}

void Server::record(Peer& peer, ReportPtr report) {
  table_.report(peer.id);
  recorder_.record(std::move(report), peer.id);
}

void Server::acknowledge_recorded() {
  for (const Recorder::Done& done : recorder_.take_done()) {
    ++(done.recorded ? table_.counters().recorded : table_.counters().failed);
    const auto peer = std::find_if(peers_.begin(), peers_.end(), [&](const Peer& p) { return p.id == done.peer; });
    if (done.recorded && peer != peers_.end()) peer->answer(done.header);
  }
}

// The connection is at its end: by the peer, by what it sent, or by its taking too long.
bool Server::finished(Peer& peer) {
  const bool garbage = peer.reader.state() == MessageReader::State::garbage;
  const auto since = peer.owing_since(table_.knows(peer.id));
  const bool late = since && now_ - *since >= options_.patience;
  if (!garbage && !late && !(peer.at_end() && !peer.wants_to_write())) return false;
  if (garbage || late) {
    ++table_.counters().refused;
    say_sparingly(name_of(peer) + (garbage ? " sends what is no message" : " takes too long") + ", closed");
  }
  if (ReportPtr cut = peer.reader.take_cut_report()) {
    say(name_of(peer) + " sent its report in part only");
    record(peer, std::move(cut));
  }
  forget(peer);
  return true;
}

void Server::forget(Peer& peer) {
  const std::string name = name_of(peer);
  const std::optional<Process> process = table_.forget(peer.id);
  if (process && (options_.verbose || process->reports > 0))
    say_sparingly(name + (process->reports > 0 ? " ended after its report" : " ended without de-registering"));
}

std::string Server::name_of(const Peer& peer) const {
  const Process* process = table_.find(peer.id);
  return "process " + std::to_string(peer.pid) + (process ? " (" + ctl::escape(process->program) + ")" : "");
}

}  // namespace plov::pced
