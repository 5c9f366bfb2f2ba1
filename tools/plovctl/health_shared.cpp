#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "escape.h"
#include "health.h"
#include "output.h"
#include "pce.h"
#include "pce_wire.h"
#include "xlog.h"
#include "xsim_format.h"

namespace plov::ctl {
namespace {

constexpr int kLooks = 20;  // 50 ms apart: no holder that lives works for a second

std::string key_text(uint32_t key) {
  char text[16];
  snprintf(text, sizeof text, "0x%08x", key);
  return text;
}

std::string process_name(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/comm");
  std::string name;
  std::getline(file, name);
  return escape(name);
}

// 0 free, the holder's process when it is held and does not become free, -1 when it cannot be told.
pid_t holder_of(int id) {
  pid_t holder = 0;
  for (int look = 0; look < kLooks; ++look) {
    const int value = semctl(id, 0, GETVAL), pid = semctl(id, 0, GETPID);
    if (value < 0 || pid < 0) return -1;
    // Free, or somebody else's by now.
    if (value == 0 || (look > 0 && pid != holder)) return 0;
    holder = pid;
    usleep(50000);
  }
  return holder;
}

void check_semaphore(Diagnoses& diagnoses, const std::string& about, uint32_t key) {
  const int id = semget(static_cast<key_t>(key), 0, 0);
  const std::string again = "ipcrm -S " + key_text(key) + "; whoever needs it next makes it again";
  if (id < 0) {
    diagnoses.push_back(
        errno == ENOENT
            ? Diagnosis{Health::good, about, "not there yet: who needs it first makes it", ""}
            : Diagnosis{Health::problem, about, "semaphore " + key_text(key) + ": " + strerror(errno), again});
    return;
  }
  semid_ds status = {};
  union {
    semid_ds* buffer;
  } argument = {&status};
  if (semctl(id, 0, IPC_STAT, argument) != 0 || status.sem_nsems != 1) {
    diagnoses.push_back({Health::problem, about, "semaphore " + key_text(key) + " is none of the console's", again});
    return;
  }
  if ((status.sem_perm.mode & 0666) != 0666)
    diagnoses.push_back({Health::problem, about, "semaphore " + key_text(key) + " is not for all users", again});
  const pid_t holder = holder_of(id);
  if (holder <= 0)
    diagnoses.push_back({Health::good, about, "free", ""});
  else if (kill(holder, 0) != 0 && errno == ESRCH)
    diagnoses.push_back(
        {Health::problem, about, "held for process " + std::to_string(holder) + ", which is gone", again});
  else
    diagnoses.push_back({Health::problem, about,
                         "held for more than a second by process " + std::to_string(holder) + " (" +
                             process_name(holder) + "): everybody waits",
                         "plovctl trace --pid " + std::to_string(holder)});
}

// Read-only: who looks at the map's header block makes none.
class HeaderBlock {
 public:
  HeaderBlock() {
    const int id = shmget(static_cast<key_t>(XSIM_KEY_HEADER), sizeof(xsim_header_block), 0);
    if (id < 0) return;
    void* const address = shmat(id, nullptr, SHM_RDONLY);
    if (address != reinterpret_cast<void*>(-1)) block_ = static_cast<const xsim_header_block*>(address);
  }
  ~HeaderBlock() {
    if (block_) shmdt(block_);
  }
  HeaderBlock(const HeaderBlock&) = delete;
  HeaderBlock& operator=(const HeaderBlock&) = delete;
  const xsim_header_block* get() const { return block_; }

 private:
  const xsim_header_block* block_ = nullptr;
};

}  // namespace

void check_semaphores(Diagnoses& diagnoses) {
  check_semaphore(diagnoses, "log lock", XLOG_SEMAPHORE_KEY);
  check_semaphore(diagnoses, "map lock", XSIM_KEY_MESSAGE);
}

void check_map(Diagnoses& diagnoses) {
  constexpr char kMap[] = "map";
  errno = 0;
  const HeaderBlock header;
  if (!header.get()) {
    diagnoses.push_back(
        errno == ENOENT ? Diagnosis{Health::good, kMap, "not loaded yet: who needs it first loads it", ""}
                        : Diagnosis{Health::problem, kMap,
                                    "shared memory " + key_text(XSIM_KEY_HEADER) + ": " + strerror(errno), "ipcs -m"});
    return;
  }
  const xsim_pass_record* const pass = header.get()->pass;
  if (pass[XSIM_TOLVANE].loaded == 0) {
    // Its segments outlive every process: nobody loads it a second time.
    std::string remove = "plovctl trace | grep XSIM tells why; then end the console's processes and: ipcrm";
    for (uint32_t key = XSIM_KEY_HEADER; key <= XSIM_KEY_MESSAGE; ++key) remove += " -M " + key_text(key);
    diagnoses.push_back({Health::problem, kMap, "its loading failed: every access is refused", remove});
    return;
  }
  std::string found = "loaded, " + grouped(static_cast<uint64_t>(pass[XSIM_TOLVANE].field_count)) + " field numbers";
  if (pass[XSIM_QUEN].loaded != 0)
    found += ", and " + grouped(static_cast<uint64_t>(pass[XSIM_QUEN].field_count)) + " from 4000 on";
  diagnoses.push_back({Health::good, kMap, found, ""});
}

void check_daemon(Diagnoses& diagnoses) {
  constexpr char kDaemon[] = "daemon";
  constexpr char kStart[] = "plovpced & (man plovpced); without it crashes are not reported";
  pce_call_record record = {};
  char directory[4096], path[sizeof directory + sizeof PCE_DAEMON_SOCKET];
  sockaddr_un address = {AF_UNIX, {}};
  if (pce_find_tempdir(&record, directory, sizeof directory) != 0 ||
      snprintf(path, sizeof path, PCE_DAEMON_SOCKET, directory) >= static_cast<int>(sizeof address.sun_path)) {
    diagnoses.push_back({Health::problem, kDaemon, "PCE_TEMPDIR is too long for a socket", "unset PCE_TEMPDIR"});
    return;
  }
  strcpy(address.sun_path, path);
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + strlen(path));
  const bool connected = fd >= 0 && connect(fd, reinterpret_cast<const sockaddr*>(&address), size) == 0;
  const int error = errno;
  if (fd >= 0) close(fd);
  if (connected)
    diagnoses.push_back({Health::good, kDaemon, std::string("answers at ") + path, ""});
  else
    diagnoses.push_back({error == ENOENT ? Health::notice : Health::problem, kDaemon,
                         error == ENOENT         ? "not running: processes cannot be set up"
                         : error == ECONNREFUSED ? "gone; its socket is still there"
                                                 : std::string(path) + ": " + strerror(error),
                         kStart});
}

}  // namespace plov::ctl
