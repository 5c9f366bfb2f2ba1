// Which file a log's name means, and its bytes.
#ifndef PLOV_CTL_LOG_SOURCE_H
#define PLOV_CTL_LOG_SOURCE_H

#include <cstdint>
#include <string>
#include <vector>

namespace plov::ctl {

// Makes DIR the console directory of this run: CONSOLE_PATH, and the working directory, whose path table comes first.
void use_console_directory(const std::string& directory);

// A path as the user gave it, whatever the working directory has become since.
std::string given_path(const std::string& path);

// The directory that the path table gives for a bare name, with its trailing "/".
std::string locate(const std::string& name);

struct LogName {
  std::string session;  // as the library takes it
  std::string path;     // the file
};

// "" or "log", a short name, "!name" or "!/path" as the library takes them; and, as people write them, a path with a
// "/" in it and the file names "wexoe4.log", "wexocom0.log".
LogName resolve_log(const std::string& name);

// As resolve_log, for a file that must exist: the library would make a new one.
LogName existing_log(const std::string& name);

struct Descriptor {
  explicit Descriptor(const std::string& path);
  ~Descriptor();
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  const int number;
};

// What can be read up to the end, at most `limit` bytes, whatever kind of file it is; `expected` is where the end may
// be.
std::vector<uint8_t> read_to_end(int fd, const std::string& name, size_t limit, size_t expected = 0);

// A block's data from a file, or from standard input for "-". One byte more than the log keeps tells that it will be
// cut.
std::vector<uint8_t> read_block(const std::string& path);

std::vector<uint8_t> read_whole_file(const std::string& path);

// The machine-wide log lock: while it is held no log file changes. A file read without it may be half changed.
class LogLock {
 public:
  explicit LogLock(bool wanted = true);
  ~LogLock();
  LogLock(const LogLock&) = delete;
  LogLock& operator=(const LogLock&) = delete;

 private:
  bool held_ = false;
};

}  // namespace plov::ctl

#endif
