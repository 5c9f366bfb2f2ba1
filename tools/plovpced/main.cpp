// plovpced: the process-control daemon. Processes register with it; what a crashed one reports it writes into the log.
#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <string>

#include "listener.h"
#include "notify.h"
#include "place.h"
#include "recorder.h"
#include "say.h"
#include "server.h"
#include "table_view.h"

// The library's way to restart the machine. No report asks for that, and this program never does it.
extern "C" int system(const char*) {
  errno = ECANCELED;
  return -1;
}

namespace {

using namespace plov::pced;

constexpr unsigned kReportsInHand = 64;  // 7 MB; the bytes of further ones wait in their sockets
constexpr std::chrono::milliseconds kFinishTime(5000);

// A log file must not come to stand where a standard descriptor is closed.
void occupy_standard_descriptors() {
  int fd;
  do fd = open("/dev/null", O_RDWR | O_CLOEXEC);
  while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd >= 0) close(fd);
}

// Becomes readable with the first SIGTERM or SIGINT. No thread of this process takes them otherwise.
int catch_end() {
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGTERM);
  sigaddset(&ends, SIGINT);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  signal(SIGPIPE, SIG_IGN);
  const int descriptor = signalfd(-1, &ends, SFD_CLOEXEC | SFD_NONBLOCK);
  if (descriptor < 0) fail_with_errno("signalfd");
  return descriptor;
}

void use_console_directory(std::string root) {
  if (!root.ends_with("/")) root += "/";
  char* const whole = realpath(root.c_str(), nullptr);
  if (!whole || chdir(whole) != 0) fail_with_errno("--root " + root);
  setenv("CONSOLE_PATH", (std::string(whole) + "/").c_str(), 1);
  free(whole);
}

int serve(const Server::Options& options) {
  const int stop = catch_end();
  const int wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (wake < 0) fail_with_errno("eventfd");
  const Place place = find_place();
  ReportPool pool(kReportsInHand);
  std::optional<Listener> listener(place);
  Recorder recorder(wake);
  say("listens at " + place.socket);
  notify_manager("READY=1");
  Server server(*listener, pool, recorder, stop, wake, options);
  const bool taken = server.run();
  notify_manager("STOPPING=1");
  const bool finished = recorder.finish(kFinishTime);
  listener.reset();
  say(taken && finished ? "has ended" : "has ended without having recorded everything");
  if (!finished) _exit(1);  // its thread still waits for the log
  return taken ? 0 : 1;
}

int run(int argc, char** argv) {
  CLI::App app(
      "The process-control daemon of the console application: processes register with it, and what a crashed one\n"
      "reports it writes into the log. Runs in the foreground until SIGTERM.\n"
      "Exit: 0 done, 1 failed, 2 usage.",
      "plovpced");
  std::string root;
  double patience = 60;
  bool table = false, json = false;
  Server::Options options;
  app.set_version_flag("--version", "plovpced " PLOV_VERSION);
  app.add_option("--root", root, "Use this console directory (else the environment's CONSOLE_PATH)")->type_name("DIR");
  app.add_option("--patience", patience, "Close connections that take longer for a message")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.001, 86400.0))
      ->capture_default_str();
  app.add_flag("--verbose", options.verbose, "Tell of every process that comes and goes");
  CLI::Option* const show = app.add_flag("--table", table, "Show the processes that the running daemon knows, and end");
  app.add_flag("--json", json, "With --table: one JSON object")->needs(show);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  if (table) {
    show_table(json);
    return 0;
  }
  options.patience = std::chrono::milliseconds(static_cast<int64_t>(patience * 1000));
  if (!root.empty()) use_console_directory(root);
  return serve(options);
}

}  // namespace

int main(int argc, char** argv) {
  occupy_standard_descriptors();
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    say(error.what());
  }
  return 1;
}
