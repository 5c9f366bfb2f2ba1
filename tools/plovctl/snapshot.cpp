// plovctl snapshot: copies the log files aside for a collection of diagnostic data.
#include <sys/stat.h>

#include <string>

#include "log_source.h"
#include "output.h"
#include "times.h"
#include "verbs.h"
#include "xlog.h"

namespace plov::ctl {
namespace {

void snapshot(const Session& session) {
  const int64_t begun = stamp_now().seconds;
  const int32_t sysrc = xlog_take_snapshot();
  uint64_t copies = 0;
  const auto report = [&](const std::string& log) {
    const std::string name = "cduffdc_" + log;
    const std::string path = locate(name) + name;
    struct stat status;
    // A copy has its log's times but for the last change, which is the copying.
    if (stat(path.c_str(), &status) != 0 || status.st_ctim.tv_sec < begun) return;
    ++copies;
    if (session.json)
      print_line(Json{{"file", path}, {"bytes", status.st_size}});
    else
      print(path + ", " + grouped(static_cast<uint64_t>(status.st_size)) + " bytes\n");
  };
  report("wexolog.log");
  report("wexoe4.log");
  for (const char slot : std::string("0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ"))
    report(std::string("wexocom") + slot + ".log");
  if (sysrc != 0)
    throw Failure("xlog_take_snapshot: sysrc " + std::to_string(sysrc) + " after " + counted(copies, "file") +
                  "\n  The newest events say what failed: plovctl show -n 4.");
}

}  // namespace

void add_snapshot(CLI::App& app, Session& session) {
  CLI::App* verb = app.add_subcommand("snapshot", "Copy the log files to cduffdc_ and their names");
  add_json(*verb, session);
  verb->callback([&session] { snapshot(session); });
}

}  // namespace plov::ctl
