// plovctl init: lays out a console directory that works as it is.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "log_source.h"
#include "map_source.h"
#include "output.h"
#include "shipped_files.h"
#include "verbs.h"

namespace plov::ctl {
namespace {

struct Options {
  std::string directory;
  bool force = false;
};

// The path table holds pattern and directory in 121 characters; the longest shipped line has 27 besides the directory:
// "PA_CRASH_PATH" and "data/pa/crash/".
constexpr size_t kLongestDirectory = 121 - 27;
constexpr char kConfig[] = "config/";

void write_file(const std::string& path, std::string_view text, bool force) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | (force ? O_TRUNC : O_EXCL), 0644);
  if (fd < 0) throw Failure(path + ": " + strerror(errno));
  const ssize_t written = write(fd, text.data(), text.size());
  int problem = written < 0 ? errno : static_cast<size_t>(written) < text.size() ? ENOSPC : 0;
  if (close(fd) != 0 && problem == 0) problem = errno;
  if (problem == 0) return;
  unlink(path.c_str());
  throw Failure(path + ": " + strerror(problem));
}

struct NewFile {
  std::string path, bytes;
};

// The shipped files and the map's. A map that is there already stays, by force too: its permanent file holds what the
// console has kept, and the other one says where in it.
std::vector<NewFile> files_of(const std::string& root) {
  std::vector<NewFile> files;
  bool map_is_there = false;
  MapFiles map;
  for (const ShippedFile& file : shipped_files) {
    files.push_back({root + file.name, file.text});
    if (file.name == std::string(kShippedMapSource)) map = build_map(file.text);
  }
  for (const auto& [name, bytes] : map.files) map_is_there |= access((root + kConfig + name).c_str(), F_OK) == 0;
  if (!map_is_there)
    for (const auto& [name, bytes] : map.files) files.push_back({root + kConfig + name, bytes});
  return files;
}

// All of them or none.
void write_files(const std::vector<NewFile>& files, bool force) {
  std::vector<std::string> written;
  try {
    for (const NewFile& file : files) {
      write_file(file.path, file.bytes, force);
      written.push_back(file.path);
    }
  } catch (const Failure&) {
    for (const std::string& path : written) unlink(path.c_str());
    throw;
  }
}

std::string shell_word(const std::string& text) {
  static constexpr char kPlain[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789/._-+,:@%=";
  if (text.find_first_not_of(kPlain) == std::string::npos) return text;
  std::string quoted = "'";
  for (char c : text) quoted += c == '\'' ? "'\\''" : std::string(1, c);
  return quoted + "'";
}

void init(const Options& options, const Session& session) {
  std::error_code error;
  std::string root = std::filesystem::weakly_canonical(given_path(options.directory), error).string();
  if (error) throw Failure(options.directory + ": " + error.message());
  if (!root.ends_with("/")) root += "/";
  if (root.size() > kLongestDirectory)
    throw Failure(root + ": the path table has room for " + std::to_string(kLongestDirectory) +
                  " characters of directory; this one has " + std::to_string(root.size()));
  if (root.find_first_of(" *;\r\n\x1A") != std::string::npos)
    throw Failure(root + ": the path table cannot hold a directory with a blank, \"*\", \";\" or control character");
  const std::vector<NewFile> files = files_of(root);
  if (!options.force)
    for (const NewFile& file : files)
      if (access(file.path.c_str(), F_OK) == 0) throw Failure(file.path + " exists already; --force overwrites it");
  std::filesystem::create_directories(root + kConfig, error);
  if (error) throw Failure(options.directory + ": " + error.message());
  write_files(files, options.force);
  if (session.json) {
    Json line = {{"console_path", root}, {"files", Json::array()}};
    for (const NewFile& file : files) line["files"].push_back(file.path);
    return print_line(line);
  }
  print("Made " + root + "ywkddfc.trm (where files live) and " + root + "wexoinit.trm (sizes and keep counts).\n" +
        "The map of system values is described in " + root + kShippedMapSource + " and lies in " + root + "config/.\n" +
        "The log files will lie in " + root +
        "data/. Use the directory with:\n  export CONSOLE_PATH=" + shell_word(root) + "\n");
}

}  // namespace

void add_init(CLI::App& app, Session& session) {
  auto options = std::make_shared<Options>();
  CLI::App* verb = app.add_subcommand("init", "Lay out a console directory that works as it is");
  verb->add_option("DIR", options->directory, "The directory; made when it does not exist")
      ->required()
      ->check(not_empty);
  verb->add_flag("--force", options->force, "Overwrite the files of an earlier init");
  add_json(*verb, session);
  verb->callback([options, &session] { init(*options, session); });
}

}  // namespace plov::ctl
