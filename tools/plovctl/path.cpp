// plovctl path: where the path table puts a file, and which line says so.
#include <fnmatch.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "escape.h"
#include "log_source.h"
#include "output.h"
#include "verbs.h"
#include "xdfc.h"

namespace plov::ctl {
namespace {

struct Entry {
  std::string pattern;
  std::string directory;
  bool creates = false;
  int number = 0;  // counting entries from 1
};

// The entry that wins for a name, read from the loaded table as the library reads it.
Entry winning_entry(const std::string& name) {
  int number = 0;
  size_t offset = 0;
  while (offset + 6 < XDFC_TABLE_SIZE) {
    const auto length = static_cast<signed char>(xdfc_file_req[offset]);
    if (length <= 0) break;
    ++number;
    const char* pattern = reinterpret_cast<const char*>(xdfc_file_req) + offset + 4;
    const size_t room = XDFC_TABLE_SIZE - offset - 4;
    const size_t pattern_length = strnlen(pattern, room);
    if (pattern_length + 1 < room && fnmatch(pattern, name.c_str(), FNM_NOESCAPE) == 0) {
      const char* directory = pattern + pattern_length + 1;
      return {pattern, std::string(directory, strnlen(directory, room - pattern_length - 1)),
              (xdfc_file_req[offset + 2] & 1) != 0, number};
    }
    offset += static_cast<size_t>(length);
  }
  return {};
}

bool locate_one(const std::string& name, const Session& session) {
  std::string directory;
  Entry entry;
  const bool explicit_path = name.starts_with("!");
  if (!explicit_path) {
    try {
      directory = locate(name);
    } catch (const Failure& failure) {
      complain(failure.what());
      return false;
    }
    entry = winning_entry(name);
  }
  const std::string path = explicit_path ? name.substr(1) : directory + name;
  struct stat status;
  const bool exists = stat(path.c_str(), &status) == 0;
  const std::string missing = exists ? "" : strerror(errno);
  if (session.json) {
    Json line = {{"name", name}, {"directory", directory}, {"path", path}, {"exists", exists}};
    if (exists) line["bytes"] = status.st_size;
    if (!explicit_path)
      line["entry"] = {{"number", entry.number},
                       {"pattern", entry.pattern},
                       {"directory", entry.directory},
                       {"creates_directory", entry.creates}};
    print_line(line);
    return true;
  }
  std::string why = explicit_path ? "an explicit path: no entry of the path table is asked"
                                  : "entry " + std::to_string(entry.number) + " \"" + escape(entry.pattern) + " " +
                                        escape(entry.directory) + (entry.creates ? " C\"" : "\"");
  print(escape(path) + "\n  " + why + "\n  " +
        (exists ? "exists, " + grouped(static_cast<uint64_t>(status.st_size)) + " bytes" : "not there: " + missing) +
        "\n");
  return true;
}

}  // namespace

void add_path(CLI::App& app, Session& session) {
  auto names = std::make_shared<std::vector<std::string>>();
  CLI::App* verb = app.add_subcommand("path", "Where the path table puts a file, and which entry says so");
  verb->add_option("NAME", *names, "File names without a directory, or !PATH")->required()->check(not_empty);
  add_json(*verb, session);
  verb->callback([names, &session] {
    for (const std::string& name : *names)
      if (!locate_one(name, session)) session.result = kFailed;
  });
}

}  // namespace plov::ctl
