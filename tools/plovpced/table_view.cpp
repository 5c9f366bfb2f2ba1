#include "table_view.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "escape.h"
#include "message_reader.h"
#include "place.h"
#include "process_table.h"

namespace plov::pced {
namespace {

using Json = nlohmann::json;

constexpr size_t kLimit = 4 << 20;  // of an answer
constexpr int kPatience = 30000;    // ms of silence

class Connection {
 public:
  explicit Connection(const Place& place) : descriptor_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    if (descriptor_ < 0) fail_with_errno("socket");
    // Nothing is sent to a stranger who has put a socket there. In a directory of its own the daemon may be another
    // user's: root asks too.
    struct stat status;
    if (lstat(place.socket.c_str(), &status) != 0) fail_with_errno("no daemon runs: " + place.socket);
    if (!trusted(status.st_uid) && (place.shared || status.st_uid != place.owner))
      throw std::runtime_error(place.socket + ": belongs to user " + std::to_string(status.st_uid));
    if (connect(descriptor_, reinterpret_cast<const sockaddr*>(&place.address), place.address_size) != 0)
      fail_with_errno("no daemon answers: " + place.socket);
    const uid_t user = credentials_of(descriptor_).user;
    if (user != status.st_uid && user != 0) throw std::runtime_error(place.socket + ": answered by a stranger");
  }
  ~Connection() { close(descriptor_); }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  void ask() const {
    const pce_wire_header request = {sizeof request, kTableRequest, 0, static_cast<uint32_t>(getpid()), 0};
    if (send(descriptor_, &request, sizeof request, MSG_NOSIGNAL) != sizeof request) fail_with_errno("send");
  }

  void receive(void* place, size_t size) const {
    for (size_t filled = 0; filled < size;) {
      pollfd entry = {descriptor_, POLLIN, 0};
      const int ready = poll(&entry, 1, kPatience);
      if (ready == 0) throw std::runtime_error("the daemon does not answer");
      const ssize_t count = ready < 0 ? -1 : recv(descriptor_, static_cast<char*>(place) + filled, size - filled, 0);
      if (count == 0) throw std::runtime_error("the daemon has closed the connection");
      if (count > 0)
        filled += static_cast<size_t>(count);
      else if (errno != EINTR)
        fail_with_errno("recv");
    }
  }

 private:
  const int descriptor_;
};

std::string ask_daemon() {
  const Connection connection(find_place());
  connection.ask();
  pce_wire_header header;
  connection.receive(&header, sizeof header);
  if (header.code != kTableRequest + PCE_ACK || header.length < sizeof header || header.length > kLimit)
    throw std::runtime_error("the answer is no table");
  std::string text(header.length - sizeof header, '\0');
  connection.receive(text.data(), text.size());
  return text;
}

std::string local_time(time_t moment) {
  tm fields = {};
  char text[32] = "?";
  if (localtime_r(&moment, &fields)) strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &fields);
  return text;
}

void print_text(const Json& table) {
  printf("%8s  %-10s  %-19s  %7s  %s\n", "PID", "TYPE", "SINCE", "REPORTS", "PROGRAM");
  for (const Json& process : table.at("processes"))
    printf("%8d  %-10s  %-19s  %7u  %s\n", process.at("pid").get<int>(),
           process.at("type_name").get<std::string>().c_str(), local_time(process.at("since").get<time_t>()).c_str(),
           process.at("reports").get<unsigned>(), ctl::escape(process.at("program").get<std::string>()).c_str());
  const Json& daemon = table.at("daemon");
  const auto count = [&](const char* name) { return std::to_string(daemon.at(name).get<uint64_t>()) + " " + name; };
  printf("daemon %d since %s: %zu alive; %s, %s, %s; %s, %s, %s; %s\n", daemon.at("pid").get<int>(),
         local_time(daemon.at("since").get<time_t>()).c_str(), table.at("processes").size(),
         count("registered").c_str(), count("deregistered").c_str(), count("vanished").c_str(),
         count("reports").c_str(), count("recorded").c_str(), count("failed").c_str(), count("refused").c_str());
}

}  // namespace

void show_table(bool json) {
  const Json table = Json::parse(ask_daemon());
  if (json)
    printf("%s\n", table.dump().c_str());
  else
    print_text(table);
  if (fflush(stdout) != 0) fail_with_errno("standard output");
}

}  // namespace plov::pced
