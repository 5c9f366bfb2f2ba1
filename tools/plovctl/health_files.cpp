#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>

#include "escape.h"
#include "expand.h"
#include "failure.h"
#include "health.h"
#include "log_layout.h"
#include "log_source.h"
#include "output.h"
#include "times.h"
#include "xlog.h"

namespace plov::ctl {
namespace {

constexpr char kPathTable[] = "path table";
constexpr char kConfiguration[] = "configuration";

std::string console_directory() {
  const char* const path = getenv("CONSOLE_PATH");
  return path ? path : "/console/";
}

// "" when the path table does not say; check_directory tells of it.
std::string directory_of(const std::string& name) {
  try {
    return locate(name);
  } catch (const Failure&) {
    return "";
  }
}

std::string in_shell(const std::string& word) {
  return "'" + escape(word) + "'";
}

// The numbers in front of the seven lines that "wexoinit.trm" begins with, as far as they are numbers.
struct Configuration {
  std::vector<std::optional<unsigned>> numbers;

  uint64_t bytes(size_t line) const {
    return line < numbers.size() && numbers[line] ? *numbers[line] * uint64_t{XLOG_SIZE_UNIT} : 0;
  }
};
constexpr const char* kLines[] = {
    "largest log with a short name", "largest main log", "largest log e4", "largest single log", "modify block",
    "events kept of a class",        "compressed copies"};
constexpr size_t kMainLine = 1, kE4Line = 2, kCopiesLine = 6;

Configuration read_configuration() {
  Configuration configuration;
  std::ifstream file(directory_of("wexoinit.trm") + "wexoinit.trm");
  for (std::string line; configuration.numbers.size() < std::size(kLines) && std::getline(file, line);) {
    char* end;
    const unsigned long value = strtoul(line.c_str(), &end, 10);
    const bool good = end != line.c_str() && line[0] != '-' && value <= UINT16_MAX;
    configuration.numbers.push_back(good ? std::optional<unsigned>(static_cast<unsigned>(value)) : std::nullopt);
  }
  return configuration;
}

void check_log(Diagnoses& diagnoses, const std::string& name, uint64_t limit) {
  const std::string path = directory_of(name) + name;
  struct stat status;
  if (lstat(path.c_str(), &status) != 0) {
    diagnoses.push_back({errno == ENOENT ? Health::good : Health::problem, name,
                         errno == ENOENT ? "not there yet: the first event makes it" : path + ": " + strerror(errno),
                         ""});
    return;
  }
  if (access(path.c_str(), R_OK | W_OK) != 0)
    diagnoses.push_back({Health::problem, name, path + ": " + strerror(errno) + " for this user",
                         "use it as its owner: ls -l " + in_shell(path)});
  if (S_ISREG(status.st_mode) && (status.st_mode & 077) != 0)
    diagnoses.push_back({Health::problem, name, path + " is open to other users", "chmod 600 " + in_shell(path)});
  std::ifstream file(path, std::ios::binary);
  std::vector<uint8_t> bytes(XLOG_FILE_HEADER_SIZE);
  file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<size_t>(file.gcount()));
  const auto header = load_file_header(bytes);
  if (!header) {
    diagnoses.push_back({Health::problem, name, path + " is shorter than its header",
                         "plovctl check " + in_shell(name) + "; the next event saves it aside and begins a new one"});
    return;
  }
  const uint64_t own_limit = header->max_file_size * uint64_t{XLOG_SIZE_UNIT};
  if (header->file_flags & XLOG_FILE_PRUNE_IN_PROGRESS)
    diagnoses.push_back({Health::notice, name, "a process died, or works right now, while it makes room",
                         "nothing: whoever opens the log next finishes it"});
  if (limit != 0 && own_limit != limit)
    diagnoses.push_back({Health::notice, name,
                         "may grow to " + grouped(own_limit) + " bytes; wexoinit.trm says " + grouped(limit) +
                             ", which counts for a new file",
                         "plovctl purge --whole-file --confirm begins a new one, and deletes all events"});
  diagnoses.push_back(
      {Health::good, name, grouped(header->file_size) + " of " + grouped(own_limit) + " bytes used", ""});
}

// What making room needs beside the full log: one more copy, and the finished file before it takes the log's place.
void check_space(Diagnoses& diagnoses, const Configuration& configuration) {
  const std::string directory = directory_of("wexolog.log");
  struct statvfs status;
  const uint64_t wanted = configuration.bytes(kMainLine) * (configuration.bytes(kCopiesLine) != 0 ? 2 : 1);
  if (wanted == 0 || statvfs(directory.c_str(), &status) != 0) return;
  const uint64_t free = uint64_t{status.f_bavail} * status.f_frsize;
  const std::string found =
      grouped(free) + " bytes free in " + directory + ", making room needs up to " + grouped(wanted);
  diagnoses.push_back(
      {free < wanted ? Health::problem : Health::good, "free space", found,
       free < wanted ? "free some: df " + in_shell(directory) + "; or lower lines 2 and 7 of wexoinit.trm" : ""});
}

// Files in a directory whose names begin and end so.
size_t count_files(const std::string& directory, const std::string& begin, const std::string& end) {
  size_t count = 0;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
    const std::string name = entry.path().filename().string();
    count += name.size() >= begin.size() + end.size() && name.starts_with(begin) && name.ends_with(end);
  }
  return count;
}

}  // namespace

bool check_directory(Diagnoses& diagnoses) {
  const std::string console = console_directory();
  if (!console.ends_with("/"))
    diagnoses.push_back({Health::problem, "CONSOLE_PATH", "\"" + escape(console) + "\" does not end in \"/\"",
                         "export CONSOLE_PATH=" + in_shell(console + "/")});
  try {
    locate("wexolog.log");
  } catch (const Failure& failure) {
    diagnoses.push_back({Health::problem, kPathTable, failure.what(), ""});
    return false;
  }
  // The directories that something is written to.
  bool good = true;
  for (const char* const name : {"wexolog.log", "wexoe4.log", "cduffdc_wexolog.log", "ywkzspr.dat", "core.1"}) {
    const std::string directory = directory_of(name);
    if (directory.empty() || access(directory.c_str(), W_OK | X_OK) == 0) continue;
    good = false;
    diagnoses.push_back({Health::problem, kPathTable,
                         std::string(name) + " would go to " + directory + ": " + strerror(errno),
                         errno == ENOENT ? "mkdir -p " + in_shell(directory) : "ls -ld " + in_shell(directory)});
  }
  if (good) diagnoses.push_back({Health::good, kPathTable, "logs go to " + directory_of("wexolog.log"), ""});
  return true;
}

void check_configuration(Diagnoses& diagnoses) {
  const std::string path = directory_of("wexoinit.trm") + "wexoinit.trm";
  const Configuration configuration = read_configuration();
  bool good = configuration.numbers.size() == std::size(kLines);
  if (!good)
    diagnoses.push_back({Health::problem, kConfiguration,
                         path + " has " + std::to_string(configuration.numbers.size()) + " of its first 7 lines",
                         "man wexoinit.trm; plovctl init shows one that works"});
  for (size_t i = 0; i < configuration.numbers.size(); ++i) {
    if (configuration.numbers[i]) continue;
    good = false;
    diagnoses.push_back(
        {Health::problem, kConfiguration,
         path + ", line " + std::to_string(i + 1) + " (" + kLines[i] + ") begins with no number up to 65535",
         "man wexoinit.trm"});
  }
  if (good)
    diagnoses.push_back({Health::good, kConfiguration,
                         "main log up to " + grouped(configuration.bytes(kMainLine)) + " bytes, " +
                             std::to_string(*configuration.numbers[kCopiesLine]) + " compressed copies",
                         ""});
}

void check_logs(Diagnoses& diagnoses) {
  const Configuration configuration = read_configuration();
  check_log(diagnoses, "wexolog.log", configuration.bytes(kMainLine));
  check_log(diagnoses, "wexoe4.log", configuration.bytes(kE4Line));
  check_space(diagnoses, configuration);
}

void check_leftovers(Diagnoses& diagnoses) {
  const std::string logs = directory_of("wexolog.log");
  struct stat status;
  if (stat((logs + "wexosave.log").c_str(), &status) == 0)
    diagnoses.push_back(
        {Health::notice, "saved log",
         "a damaged log was saved aside on " + table_time({static_cast<uint32_t>(status.st_mtim.tv_sec), 0}, false),
         "plovctl check wexosave.log; plovctl show --file wexosave.log"});
  const size_t waiting = count_files(directory_of("PA_CRASH_PATH"), "", "");
  if (waiting != 0)
    diagnoses.push_back({Health::notice, "problem analysis", counted(waiting, "event") + " could not be reported to it",
                         "start the console's Java side: ls -l " + in_shell(directory_of("PA_CRASH_PATH"))});
  const size_t cores = count_files(directory_of("core.1"), "core", "");
  if (cores != 0)
    diagnoses.push_back({Health::notice, "crashes", counted(cores, "core file") + " in " + directory_of("core.1"),
                         "plovctl show --crash"});
}

}  // namespace plov::ctl
