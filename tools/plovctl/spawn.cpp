// plovctl spawn: starts a program as the console's processes do.
#include <csignal>
#include <cstring>
#include <string>
#include <vector>

#include <sys/wait.h>

#include "escape.h"
#include "output.h"
#include "verbs.h"
#include "xmis.h"

namespace plov::ctl {
namespace {

struct Options {
  std::vector<std::string> command;
  std::optional<uint32_t> wait;
};

std::string signal_name(int signal) {
  const char* name = sigabbrev_np(signal);
  return name ? std::string("SIG") + name : "signal " + std::to_string(signal);
}

std::string end_of(int status) {
  if (WIFSIGNALED(status)) return "ended by " + signal_name(WTERMSIG(status));
  return "exited with " + std::to_string(WEXITSTATUS(status));
}

void report(const xmis_spawn_parameters& child, bool ended, const Session& session) {
  if (!session.json)
    return print("pid " + std::to_string(child.pid) +
                 (ended
                      ? " " + end_of(child.status) + " (raw status " + hex(static_cast<uint32_t>(child.status), 4) + ")"
                      : " started") +
                 "\n");
  Json line = {{"pid", child.pid}, {"ended", ended}};
  if (ended) {
    line["status"] = child.status;
    if (WIFSIGNALED(child.status))
      line["signal"] = signal_name(WTERMSIG(child.status));
    else
      line["exit_code"] = WEXITSTATUS(child.status);
  }
  line["reason"] = child.reason;
  line["reason_text"] = child.reason ? strerror(static_cast<int>(child.reason)) : "";
  print_line(line);
}

void spawn(Options& options, const Session& session) {
  std::vector<char*> argv;
  for (std::string& word : options.command) argv.push_back(word.data());
  argv.push_back(nullptr);
  xmis_spawn_parameters parameters = {};
  parameters.program = argv[0];
  parameters.argv = argv.data();
  if (options.wait) {
    parameters.flags = XMIS_SPAWN_WAIT;
    parameters.time_limit = *options.wait;
  }
  uint32_t comprc = 0;
  // An ignored signal is inherited, and a program that writes into a closed pipe shall end of it.
  const auto ours = std::signal(SIGPIPE, SIG_DFL);
  const int32_t sysrc = xmis_spawn_pgm(&parameters, &comprc);
  std::signal(SIGPIPE, ours);
  if (sysrc == 0 || parameters.pid != 0 || session.json) report(parameters, sysrc == 0 && options.wait, session);
  if (sysrc == 0) return;
  const std::string reason = parameters.reason ? std::string(": ") + strerror(static_cast<int>(parameters.reason)) : "";
  throw CallFailure("xmis_spawn_pgm", escape(options.command[0]) + reason, Family::xmis, sysrc, comprc);
}

}  // namespace

void add_spawn(CLI::App& app, Session& session) {
  auto options = std::make_shared<Options>();
  CLI::App* verb = app.add_subcommand("spawn", "Start a program as the console's processes do");
  verb->add_option_function<std::string>(
          "--wait", [options](const std::string& text) { options->wait = number("--wait", text, UINT32_MAX); },
          "Wait so long for its end and show its status; else only its pid")
      ->type_name("SECONDS");
  verb->add_option("PROGRAM", options->command, "Behind --: the program, looked for on PATH, and its arguments")
      ->required();
  add_json(*verb, session);
  verb->callback([options, &session] { spawn(*options, session); });
}

}  // namespace plov::ctl
