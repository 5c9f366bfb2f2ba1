#include "support/pce_daemon.h"

#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>

#include "xtr.h"

namespace test {

std::string Report::after(const std::string& beginning) const {
  for (const std::string& line : lines)
    if (line.compare(0, beginning.size(), beginning) == 0) return line.substr(beginning.size());
  return "";
}

PceDaemon::PceDaemon(Manner manner) : manner_(manner) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  char* const directory = getcwd(nullptr, 0);
  setenv("PCE_TEMPDIR", directory, 1);
  snprintf(address.sun_path, sizeof address.sun_path, PCE_DAEMON_SOCKET, (std::string(directory) + "/").c_str());
  free(directory);
  path_ = address.sun_path;
  listener_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  unlink(path_.c_str());
  if (bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || listen(listener_, 64) != 0)
    abort();
}

// A sanitizer handles some of the signals, and the one of threads takes the mutex that a fork holds, and that is fresh
// in the child, for held. (This unlock fails.)
void PceDaemon::make_plain() {
  for (int signal : kTheTen) ::signal(signal, SIG_DFL);
#ifdef __SANITIZE_THREAD__
  pthread_mutex_unlock(&xtr_mutex_sem);
#endif
}

PceDaemon::~PceDaemon() {
  close(listener_);
  unlink(path_.c_str());
}

// False when the peer is to be left.
bool PceDaemon::take_messages(Peer& peer, Visit& visit) {
  pce_wire_header header;
  while (peer.bytes.size() >= sizeof header) {
    memcpy(&header, peer.bytes.data(), sizeof header);
    if (manner_ == kHangsUpInsideTheReport && header.code == SMSG_TAKE_LOG_REQ) return false;
    if (peer.bytes.size() < header.length) return true;
    visit.codes.push_back(header.code);
    if (header.code == SMSG_REGISTER_REQ && header.length == sizeof(pce_wire_register)) {
      visit.registrations.emplace_back();
      memcpy(&visit.registrations.back(), peer.bytes.data(), sizeof(pce_wire_register));
    }
    if (header.code == SMSG_TAKE_LOG_REQ && header.length == sizeof(pce_wire_take_log)) {
      visit.newest = std::make_shared<pce_wire_take_log>();
      pce_wire_take_log& log = *visit.newest;
      memcpy(&log, peer.bytes.data(), sizeof log);
      Report report = {header, log.report_id, static_cast<int>(log.signal), {}, {}};
      for (uint32_t at = 0; at < log.text_length; at += static_cast<uint32_t>(report.lines.back().size()) + 1)
        report.lines.emplace_back(log.text + at);
      report.backtrace.assign(log.backtrace, log.backtrace_length);
      visit.reports.push_back(report);
    }
    const pce_wire_header answer = {sizeof answer, header.code + PCE_ACK, 0, 0, 0};
    if (manner_ == kLeavesUnanswered || send(peer.socket, &answer, sizeof answer, MSG_NOSIGNAL) < 0) return false;
    peer.bytes.erase(0, header.length);
  }
  return true;
}

// False at the end of the stream.
bool PceDaemon::read_from(Peer& peer, Visit& visit) {
  char buffer[65536];
  const ssize_t got = recv(peer.socket, buffer, manner_ == kSlow ? 100 : sizeof buffer, MSG_DONTWAIT);
  if (got < 0) return errno == EAGAIN;
  peer.bytes.append(buffer, static_cast<size_t>(got));
  return got > 0 && take_messages(peer, visit);
}

Visit PceDaemon::serve(pid_t child) {
  Visit visit;
  const int child_end = static_cast<int>(syscall(SYS_pidfd_open, child, 0));
  std::vector<Peer> peers;
  for (bool alive = true;;) {
    std::vector<pollfd> entries = {{listener_, POLLIN, 0}, {alive ? child_end : -1, POLLIN, 0}};
    const bool later = manner_ == kReadsLater && alive && !visit.registrations.empty();
    for (const Peer& peer : peers) entries.push_back({later ? -1 : peer.socket, POLLIN, 0});
    const int ready = poll(entries.data(), entries.size(), alive || !peers.empty() ? -1 : 0);
    if (ready <= 0 && !alive && peers.empty()) break;
    if (entries[1].revents != 0) alive = false;
    for (size_t i = peers.size(); i-- > 0;) {
      if (entries[i + 2].revents == 0 || read_from(peers[i], visit)) continue;
      close(peers[i].socket);
      peers.erase(peers.begin() + static_cast<ptrdiff_t>(i));
    }
    if (entries[0].revents != 0) peers.push_back({accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC), {}});
  }
  close(child_end);
  visit.end = wait_for(child);
  return visit;
}

}  // namespace test
