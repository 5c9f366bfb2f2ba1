// plovctl: records events, reads them back and looks into log files, path table, map of system values and trace.
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>

#include "escape.h"
#include "log_source.h"
#include "output.h"
#include "verbs.h"

namespace {

using namespace plov::ctl;

// A log file must not come to stand where a standard descriptor is closed. Reading and writing these fail as before.
void occupy_standard_descriptors() {
  int fd;
  do fd = open("/", O_PATH | O_CLOEXEC);
  while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd >= 0) close(fd);
}

int run(int argc, char** argv) {
  Session session;
  CLI::App app(
      "Works with the event logs of the console application.\n"
      "Exit: 0 done, 1 refused or failed, 2 usage, 3 damage met, 4 nothing matched (--exit-empty).",
      "plovctl");
  app.require_subcommand(1);
  app.fallthrough();
  app.set_version_flag("--version", "plovctl " PLOV_VERSION);
  app.add_option("--root", session.root, "Use this console directory (else the environment's CONSOLE_PATH)")
      ->type_name("DIR")
      ->check(not_empty);
  add_init(app, session);
  add_record(app, session);
  add_event(app, session);
  add_microcode(app, session);
  add_update(app, session);
  add_delete(app, session);
  add_show(app, session);
  add_info(app, session);
  add_snapshot(app, session);
  add_check(app, session);
  add_dump(app, session);
  add_purge(app, session);
  add_prune(app, session);
  add_trim(app, session);
  add_doctor(app, session);
  add_path(app, session);
  add_ls(app, session);
  add_trace(app, session);
  add_explain(app, session);
  add_sim(app, session);
  add_spawn(app, session);
  add_restart(app, session);
  app.parse_complete_callback([&] {
    if (!session.root.empty()) use_console_directory(session.root);
    choose_colour(session.colour);
  });
  try {
    app.parse(argc, argv);
    flush_output();
  } catch (const ReaderGone&) {
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);
    const std::vector<CLI::App*> verbs = app.get_subcommands();
    const std::vector<std::string> others = app.remaining();
    if (!verbs.empty())
      complain(verbs[0]->get_name() + ": " + error.what() + "\n  See: plovctl " + verbs[0]->get_name() + " --help");
    else
      complain((others.empty() ? error.what() : "no verb \"" + escape(others[0]) + "\"") + "\n  See: plovctl --help");
    return kUsage;
  }
  return session.result;
}

}  // namespace

int main(int argc, char** argv) {
  occupy_standard_descriptors();
  signal(SIGPIPE, SIG_IGN);  // a reader that leaves early must not end the program while it holds the log lock
  int result = kFailed;
  try {
    result = run(argc, argv);
  } catch (const Failure& failure) {
    complain(failure.what());
    result = failure.exit_code();
  } catch (const std::exception& error) {
    complain(error.what());
  }
  return finish_pager() ? result : kFailed;
}
