#include "pce/daemon.h"

#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>

#include "frame/trace_line.h"
#include "pce/failure.h"
#include "pce/send.h"
#include "xpce.h"
#include "xtr.h"

namespace plov::pce {
namespace {

using frame::pce_trace_line;

constexpr uint32_t kAcknowledgeTime = 30000;  // milliseconds
static_assert(sizeof(sockaddr_un) == 110);

bool ours_or_roots(uid_t owner) {
  return owner == geteuid() || owner == 0;
}

// Who listens on the socket of a directory that anybody may write to could be anybody: there it must be ours or root's.
// In a directory that only its owner may write to, the owner's counts too.
bool trusted(const char* directory, const char* path) {
  struct stat folder, socket;
  if (stat(directory, &folder) != 0 || lstat(path, &socket) != 0) return true;  // connecting says it better
  const bool others_write = (folder.st_mode & (S_IWGRP | S_IWOTH)) != 0;
  const bool others_replace = others_write && (folder.st_mode & S_ISVTX) == 0;
  const bool good = S_ISSOCK(socket.st_mode) && !others_replace &&
                    (ours_or_roots(socket.st_uid) || (!others_write && socket.st_uid == folder.st_uid));
  if (!good) pce_trace_line('F', "   register_fn: ERROR!!! >%s< or its directory is not the PCE Daemon's", path);
  return good;
}

// The other end, as the kernel knows it, is who owns the socket: it has not been replaced since it was looked at.
bool same_owner(int32_t socket, const char* path) {
  struct stat status;
  ucred peer;
  socklen_t size = sizeof peer;
  return lstat(path, &status) == 0 && getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
         (peer.uid == status.st_uid || peer.uid == 0);
}

int32_t connect_to(pce_call_record& record, int32_t socket, const char* directory) {
  char path[512];
  const int length = snprintf(path, sizeof path, PCE_DAEMON_SOCKET, directory);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (static_cast<size_t>(length) >= sizeof address.sun_path) return ENAMETOOLONG;
  memcpy(address.sun_path, path, static_cast<size_t>(length));
  if (!trusted(directory, path)) return EACCES;
  const auto size = static_cast<uint32_t>(offsetof(sockaddr_un, sun_path)) + static_cast<uint32_t>(length);
  if (const int32_t rc = pce_connect_hard(&record, socket, reinterpret_cast<sockaddr*>(&address), size); rc != 0)
    return rc;
  return same_owner(socket, path) ? 0 : EACCES;
}

int32_t safe_directory(pce_call_record*, char* directory, uint32_t size) {
  return pce_sig_tempdir(directory, size);
}

// `socket` is -1 after a failure. As signal-safe as the call that finds the directory.
int32_t open_connection(pce_call_record& record, int32_t& socket, decltype(&pce_find_tempdir) find_directory) {
  char directory[384];
  int32_t result = pce_socket(&record, AF_UNIX, SOCK_STREAM, 0, &socket);
  if (result != 0) return result;
  result = find_directory(&record, directory, sizeof directory);
  if (result == 0) result = connect_to(record, socket, directory);
  if (result != 0) {
    result = std::max(result, pce_soclose(&record, socket));
    socket = -1;
  }
  return result;
}

pce_wire_header header(uint32_t length, uint32_t code) {
  return {length, code, 0, xtr_getpid(), xtr_gettid()};
}

int64_t now() {
  timespec time;
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<int64_t>(time.tv_sec) * 1000 + time.tv_nsec / 1000000;
}

// Reads one header before the time is over.
bool read_header(int32_t socket, pce_wire_header& answer, int64_t end) {
  uint8_t bytes[sizeof answer];
  size_t got = 0;
  while (got < sizeof bytes) {
    pollfd entry = {socket, POLLIN, 0};
    const int ready = poll(&entry, 1, static_cast<int>(std::max<int64_t>(end - now(), 0)));
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return false;
    const ssize_t count = recv(socket, bytes + got, sizeof bytes - got, MSG_DONTWAIT);
    if (count > 0)
      got += static_cast<size_t>(count);
    else if (count == 0 || (errno != EINTR && errno != EAGAIN))
      return false;
  }
  memcpy(&answer, bytes, sizeof answer);
  return true;
}

// The daemon's answer. One that stays out changes nothing; one that comes too late is passed over by the next wait.
void await_acknowledgement(int32_t socket, uint32_t code) {
  const int64_t end = now() + kAcknowledgeTime;
  pce_wire_header answer;
  while (read_header(socket, answer, end) && answer.length == sizeof answer)
    if (answer.code == code + PCE_ACK || answer.code == SMSG_GENERIC_ACK) return;
  char name[kMessageNameSize];
  pce_trace_line('F', "   await_acknowledgement: no acknowledgement of >%s<", pce_msg_2_strg(code, name));
}

int32_t not_sent(pce_call_record& record, const char* function, uint32_t code, int32_t result) {
  fail(record, code, static_cast<uint32_t>(result));
  log_failure(record, function, code, static_cast<uint32_t>(result));
  return kFailed;
}

int32_t send_reg_msg(pce_call_record& record, int32_t socket, uint16_t type) {
  pce_trace_line('D', "-> send_reg_msg:");
  pce_call_record inner = inner_record(record);
  pce_wire_register message = {header(sizeof message, SMSG_REGISTER_REQ), type, {}};
  pce_get_progname(&inner, message.header.pid, message.program_name, sizeof message.program_name);
  int32_t result = pce_send_a_msg(inner, socket, &message, kSendTime);
  if (result != 0) {
    pce_trace_line('F', "   send_reg_msg: ERROR!!! Unable to send registration to PCE Daemon process");
    result = not_sent(record, "send_reg_msg", XPCE_NOT_REGISTERED, result);
  } else {
    await_acknowledgement(socket, SMSG_REGISTER_REQ);
  }
  pce_trace_line('D', "<- send_reg_msg:");
  return result;
}

}  // namespace

int32_t register_fn(pce_call_record& record, int32_t& socket, uint16_t type) {
  pce_trace_line('D', "-> register_fn:");
  pce_call_record inner = inner_record(record);
  int32_t descriptor = -1;
  int32_t result = open_connection(inner, descriptor, pce_find_tempdir);
  if (result != 0) {
    result = not_sent(record, "register_fn", XPCE_NOT_REGISTERED, result);
  } else {
    socket = descriptor;
    pce_trace_line('F', "   register_fn: xpce_setup() Daemon socket is %d", socket);
    result = send_reg_msg(record, socket, type);
    if (result != 0) {
      socket = -1;
      result = std::max(result, pce_soclose(&record, descriptor));
    }
  }
  pce_trace_line('D', "<- register_fn:");
  return result;
}

int32_t deregister_fn(pce_call_record& record, int32_t& socket) {
  pce_trace_line('D', "-> deregister_fn:");
  pce_call_record inner = inner_record(record);
  const int32_t descriptor = socket;
  const pce_wire_header message = header(sizeof message, SMSG_DEREGISTER_REQ);
  int32_t result = pce_send_a_msg(inner, descriptor, &message, kSendTime);
  if (result != 0) {
    pce_trace_line('F', "   deregister_fn: ERROR!!! Unable to send de-registration to PCE Daemon process");
    result = not_sent(record, "deregister_fn", XPCE_NOT_DEREGISTERED, result);
  } else {
    await_acknowledgement(descriptor, SMSG_DEREGISTER_REQ);
  }
  socket = -1;
  if (descriptor >= 0) result = std::max(result, pce_soclose(&record, descriptor));
  pce_trace_line('D', "<- deregister_fn:");
  return result;
}

int32_t connect_to_daemon(pce_call_record& record) {
  int32_t socket = -1;
  open_connection(record, socket, safe_directory);
  return socket;
}

}  // namespace plov::pce
