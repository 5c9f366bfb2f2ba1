// plovctl prune and trim: the log "e4" cut down, and a copy of a log cut down.
#include <string>

#include "log_source.h"
#include "output.h"
#include "verbs.h"
#include "xlog.h"

namespace plov::ctl {
namespace {

void prune() {
  const LogName log = existing_log("e4");
  const int32_t sysrc = xlog_e4_prune();
  if (sysrc != 0) throw CallFailure("xlog_e4_prune", log.path, Family::xlog, sysrc, 0);
  print("pruned " + log.path + "\n");
}

void trim(const std::string& destination) {
  const std::string path = given_path(destination);
  uint32_t comprc = 0;
  const int32_t sysrc = xlog_trim_log(("!" + path).c_str(), &comprc);
  if (sysrc != 0 || comprc != 0) throw CallFailure("xlog_trim_log", path, Family::xlog, sysrc, comprc);
  print("copied to " + path + "\n");
}

}  // namespace

void add_prune(CLI::App& app, Session&) {
  CLI::App* verb = app.add_subcommand("prune", "Delete the oldest events of the log e4 down to a fifth of its size");
  verb->callback(prune);
}

void add_trim(CLI::App& app, Session&) {
  auto destination = std::make_shared<std::string>();
  CLI::App* verb = app.add_subcommand(
      "trim",
      "Copy the main log (to a name with wexocalt.log in it: that log), with at most its newest 1,400,000 bytes");
  verb->add_option("destination", *destination, "The file to write; one that exists is replaced")
      ->type_name("PATH")
      ->required()
      ->check(not_empty);
  verb->callback([destination] { trim(*destination); });
}

}  // namespace plov::ctl
