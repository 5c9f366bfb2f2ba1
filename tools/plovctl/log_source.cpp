#include "log_source.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "failure.h"
#include "output.h"
#include "xdfc.h"
#include "xlog.h"

namespace plov::ctl {
namespace {

constexpr size_t kLargestFile = 512 << 20;  // a log file's header allows for 128 MiB
constexpr size_t kReadStep = 64 << 10;

std::string& start_directory() {
  static std::string directory;
  return directory;
}

std::string working_directory() {
  char directory[4096];
  if (!getcwd(directory, sizeof directory)) throw Failure(std::string("working directory: ") + strerror(errno));
  return directory;
}

bool lies_here(const char* name) {
  return access(name, F_OK) == 0;
}

// "wexoe4.log" is the log "e4"; any other file name in the log directory needs the "!".
std::string session_of(const std::string& name) {
  if (name.starts_with("!")) return name;
  if (name.find('/') != std::string::npos) return "!" + given_path(name);
  if (!name.ends_with(".log")) return name;
  const std::string stem = name.substr(0, name.size() - 4);
  if (stem.starts_with("wexo") && stem.size() > 4 && stem.size() <= 8) return stem.substr(4);
  return "!" + name;
}

}  // namespace

void use_console_directory(const std::string& directory) {
  start_directory() = working_directory();
  std::string root = given_path(directory);
  if (!root.ends_with("/")) root += "/";
  if (chdir(root.c_str()) != 0) throw Failure("--root " + directory + ": " + strerror(errno));
  setenv("CONSOLE_PATH", root.c_str(), 1);
}

std::string given_path(const std::string& path) {
  if (path.starts_with("/")) return path;
  return (start_directory().empty() ? working_directory() : start_directory()) + "/" + path;
}

std::string locate(const std::string& name) {
  char path[XDFC_PATH_SIZE] = "";
  uint32_t comprc = 0;
  const int32_t sysrc = xdfc_query_file_location(name.c_str(), path, &comprc);
  if (comprc == 0 && sysrc == 0) return path;
  // The one call whose result 1 does not speak of a pointer: it is what the last pattern's comparison gave.
  if (sysrc == 1 && comprc == XDFC_NO_ENTRY)
    throw Failure("xdfc_query_file_location (" + name + "): sysrc 1, comprc 2: no entry of the path table matches");
  if (sysrc == 2 && comprc < XDFC_BAD_ARGUMENT_1 && !lies_here("ywkddfc.trm")) {
    const char* console = getenv("CONSOLE_PATH");
    std::string text =
        "the path table " + std::string(console ? console : "/console/") + "ywkddfc.trm cannot be used: ";
    text += explain_result(Family::xdfc, sysrc, comprc);
    if (!console) text += "\n  CONSOLE_PATH is not set, so /console/ counts.";
    if (console && !std::string_view(console).ends_with("/")) text += "\n  CONSOLE_PATH must end in \"/\".";
    throw Failure(text + "\n  A console directory that works comes from: plovctl init DIR");
  }
  throw CallFailure("xdfc_query_file_location", name, Family::xdfc, sysrc, comprc);
}

LogName resolve_log(const std::string& name) {
  if (name.ends_with("/")) throw Usage("--file " + name + ": no file name behind the last \"/\"");
  const std::string session = session_of(name);
  if (session.size() >= sizeof(xlog_err_interface::target_session)) throw Usage("--file: the name is too long");
  if (session.starts_with("!")) {
    const std::string rest = session.substr(1);
    if (rest.empty()) throw Usage("--file: no name behind the \"!\"");
    if (rest.find('/') != std::string::npos) return {session, rest};
    return {session, locate(session) + rest};
  }
  if (session.size() > 4)
    throw Usage("--file " + name + ": " + find_codes(Family::xlog, XLOG_ERR_NAME_TOO_LONG)[0]->meaning + "\n  " +
                find_codes(Family::xlog, XLOG_ERR_NAME_TOO_LONG)[0]->action);
  const bool main_log = session.empty() || strcasecmp(session.c_str(), "log") == 0;
  const std::string file = "wexo" + (main_log ? "log" : session) + ".log";
  return {session, locate(file) + file};
}

LogName existing_log(const std::string& name) {
  LogName log = resolve_log(name);
  struct stat status;
  if (stat(log.path.c_str(), &status) != 0) throw Failure(log.path + ": " + strerror(errno));
  return log;
}

Descriptor::Descriptor(const std::string& path) : number(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
  if (number < 0) throw Failure(path + ": " + strerror(errno));
}

Descriptor::~Descriptor() {
  close(number);
}

std::vector<uint8_t> read_to_end(int fd, const std::string& name, size_t limit, size_t expected) {
  std::vector<uint8_t> bytes(std::min(limit, expected + 1));
  size_t have = 0;
  while (have < limit) {
    if (have == bytes.size()) bytes.resize(std::min(limit, have + std::max(have, kReadStep)));
    const ssize_t got = read(fd, bytes.data() + have, bytes.size() - have);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throw Failure(name + ": " + strerror(errno));
    if (got == 0) break;
    have += static_cast<size_t>(got);
  }
  bytes.resize(have);
  return bytes;
}

std::vector<uint8_t> read_block(const std::string& path) {
  if (path == "-") return read_to_end(STDIN_FILENO, "standard input", XLOG_MAX_BLOCK_SIZE + 1);
  return read_to_end(Descriptor(given_path(path)).number, path, XLOG_MAX_BLOCK_SIZE + 1);
}

std::vector<uint8_t> read_whole_file(const std::string& path) {
  const Descriptor file(path);
  struct stat status;
  if (fstat(file.number, &status) != 0) throw Failure(path + ": " + strerror(errno));
  if (!S_ISREG(status.st_mode)) throw Failure(path + ": not a regular file");
  const auto size = static_cast<size_t>(std::min<off_t>(status.st_size, kLargestFile));
  std::vector<uint8_t> bytes = read_to_end(file.number, path, kLargestFile + 1, size);
  if (bytes.size() > kLargestFile) throw Failure(path + ": larger than any log file may be");
  return bytes;
}

LogLock::LogLock(bool wanted) {
  if (!wanted) return;
  uint32_t comprc = 0;
  const int32_t sysrc = xlog_access_sem(XLOG_SEM_LOCK, &comprc);
  held_ = sysrc == 0;
  if (!held_)
    complain("the log lock could not be taken (sysrc " + std::to_string(sysrc) + ", comprc " + std::to_string(comprc) +
             "); reading without it");
}

LogLock::~LogLock() {
  uint32_t comprc = 0;
  if (held_) xlog_access_sem(XLOG_SEM_UNLOCK, &comprc);
}

}  // namespace plov::ctl
