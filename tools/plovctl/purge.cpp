// plovctl purge: deletes classes of events from a log, or a log with its copies.
#include <cstring>
#include <string>
#include <vector>

#include "log_source.h"
#include "output.h"
#include "verbs.h"
#include "xlog.h"

namespace plov::ctl {
namespace {

struct Options {
  std::string target;
  std::vector<std::string> classes;
  bool compact = false, whole = false, confirmed = false;
};

xlog_purge_block build_block(const Options& options, const LogName& log) {
  xlog_purge_block block{};
  if (options.classes.size() > sizeof block.classes) throw Usage("--class: at most 256");
  block.count = options.whole ? XLOG_PURGE_FILE : static_cast<int32_t>(options.classes.size());
  for (size_t i = 0; i < options.classes.size(); ++i)
    block.classes[i] = static_cast<uint8_t>(number("--class", options.classes[i], 0xFF));
  memcpy(block.target_session, log.session.data(), log.session.size());
  return block;
}

void purge(const Options& options) {
  if (options.classes.empty() + !options.whole + !options.compact != 2)
    throw Usage("one of --class, --compact and --whole-file");
  if (options.whole && !options.confirmed)
    throw Usage("--whole-file removes the log, the saved copy and all compressed copies: say --confirm too");
  const LogName log = options.whole ? resolve_log(options.target) : existing_log(options.target);
  const xlog_purge_block block = build_block(options, log);
  uint32_t comprc = 0;
  const int32_t sysrc = xlog_log_purge(&block, &comprc);
  if (sysrc != 0 || comprc != 0) throw CallFailure("xlog_log_purge", log.path, Family::xlog, sysrc, comprc);
  print((options.whole ? "removed " : "purged ") + log.path + "\n");
}

}  // namespace

void add_purge(CLI::App& app, Session&) {
  auto options = std::make_shared<Options>();
  CLI::App* verb = app.add_subcommand("purge", "Delete classes of events from a log, or a log with its copies");
  verb->add_option("--class", options->classes, "A class to delete, 0 to 0xFF; may be repeated")->type_name("N");
  verb->add_flag("--compact", options->compact, "Only close the gaps that deleted events have left");
  verb->add_flag("--whole-file", options->whole, "Remove the log, the saved copy and the compressed copies");
  verb->add_flag("--confirm", options->confirmed, "Needed for --whole-file");
  verb->add_option("--file", options->target, "A log by its name: log (the main log), e4, a short name, !PATH")
      ->type_name("LOG");
  verb->callback([options] { purge(*options); });
}

}  // namespace plov::ctl
