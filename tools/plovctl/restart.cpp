// plovctl restart: asks the console to restart or stop the machine.
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "escape.h"
#include "log_source.h"
#include "output.h"
#include "verbs.h"
#include "xbt.h"

// The library's way out without a Java side is the shell. This program never takes it: who asks for a restart by hand
// is at the machine and can give the command too. Defined here, it stands before the C library's for the whole process.
extern "C" int system(const char* command) {
  plov::ctl::complain(std::string("the Java side was not reached; \"") + (command ? command : "") +
                      "\" is left to you and was not run");
  errno = ECANCELED;
  return -1;
}

namespace plov::ctl {
namespace {

struct Options {
  bool confirmed = false;
  std::string type = "reboot", name = "plovctl", message = "A restart has been requested by plovctl";
};

uint32_t type_of(const std::string& text) {
  if (text == "reboot") return XBT_REBOOT_1;
  if (text == "halt") return XBT_HALT;
  if (text == "poweroff") return XBT_POWER_OFF;
  const std::optional<uint32_t> type = parse_number(text, XBT_POWER_OFF);
  if (!type || *type == 0) throw Usage("--type \"" + text + "\": expected reboot, halt, poweroff or a number 1 to 4");
  return *type;
}

// The path table and, where it says, the log configuration: a mistyped directory must not restart a machine.
void require_console_directory() {
  const std::string configuration = locate("wexoinit.trm") + "wexoinit.trm";
  if (access(configuration.c_str(), R_OK) != 0)
    throw Failure("restart refused, this is no console directory: " + configuration + ": " + strerror(errno));
}

void restart(const Options& options, const Session& session) {
  const uint32_t type = type_of(options.type);
  if (!options.confirmed) throw Failure("restart refused: it stops the whole machine; say --confirm if you mean it");
  require_console_directory();
  uint32_t comprc = 0;
  const int32_t sysrc = xbt_restart(&comprc, options.name.c_str(), options.message.c_str(), type);
  if (session.json) print_line({{"type", type}, {"accepted", sysrc == 0}, {"sysrc", sysrc}, {"comprc", comprc}});
  if (sysrc != 0) throw CallFailure("xbt_restart", escape(options.name), Family::xbt, sysrc, comprc);
  if (!session.json) print("the Java side has accepted a restart of type " + std::to_string(type) + "\n");
}

}  // namespace

void add_restart(CLI::App& app, Session& session) {
  auto options = std::make_shared<Options>();
  CLI::App* verb = app.add_subcommand("restart", "Ask the console to restart or stop the machine");
  verb->add_flag("--confirm", options->confirmed, "Do it; without this the verb refuses");
  verb->add_option("--type", options->type, "reboot, halt or poweroff, or the restart type 1 to 4")
      ->type_name("TYPE")
      ->capture_default_str();
  verb->add_option("--name", options->name, "Who asks, at most 256 bytes")->type_name("NAME")->capture_default_str();
  verb->add_option("--message", options->message, "Why")->type_name("TEXT")->capture_default_str();
  add_json(*verb, session);
  verb->callback([options, &session] { restart(*options, session); });
}

}  // namespace plov::ctl
