// plovctl check: verifies every rule of the log file format.
#include <string>
#include <vector>

#include "expand.h"
#include "format_check.h"
#include "log_source.h"
#include "output.h"
#include "verbs.h"

namespace plov::ctl {
namespace {

struct Options {
  std::vector<std::string> files;
  std::string target;
  bool no_lock = false;
  bool quiet = false;
};

Json to_json(const Finding& finding) {
  return {{"severity", finding.note ? "note" : "damage"},
          {"offset", finding.offset},
          {"field", finding.field},
          {"found", finding.found},
          {"expected", finding.expected}};
}

void report_json(const std::string& path, size_t size, const CheckResult& result) {
  Json findings = Json::array();
  for (const Finding& finding : result.findings) findings.push_back(to_json(finding));
  print_line({{"file", path},
              {"bytes", size},
              {"logs", result.logs},
              {"deleted", result.deleted_logs},
              {"blocks", result.blocks},
              {"clean", result.clean()},
              {"damage_count", result.damage_count},
              {"findings", findings}});
}

void report_text(const std::string& path, size_t size, const CheckResult& result, bool quiet) {
  size_t damage_shown = 0;
  for (const Finding& finding : result.findings) {
    if (finding.note && quiet) continue;
    damage_shown += !finding.note;
    print(path + ": " + paint(to_text(finding), finding.note ? Colour::dim : Colour::red) + "\n");
  }
  if (damage_shown < result.damage_count)
    print(path + ": " + std::to_string(result.damage_count - damage_shown) + " more complaints not shown\n");
  if (quiet && result.clean()) return;
  const std::string verdict =
      result.clean() ? paint("clean", Colour::green) : paint(counted(result.damage_count, "complaint"), Colour::red);
  print(path + ": " + verdict + ": " + grouped(size) + " bytes, " + counted(result.logs, "log") + " (" +
        grouped(result.deleted_logs) + " deleted), " + counted(result.blocks, "block") + "\n");
}

// Each file is judged though another one could not be read; the gravest result counts.
void check(const Options& options, Session& session) {
  std::vector<std::string> paths;
  for (const std::string& file : options.files) paths.push_back(given_path(file));
  if (paths.empty() || !options.target.empty()) paths.push_back(existing_log(options.target).path);
  for (const std::string& path : paths) {
    try {
      std::vector<uint8_t> bytes;
      {
        const LogLock lock(!options.no_lock);
        bytes = read_whole_file(path);
      }
      const CheckResult result = check_format(bytes, expanded_length);
      if (!result.clean()) session.result = kDamage;
      if (session.json)
        report_json(path, bytes.size(), result);
      else
        report_text(path, bytes.size(), result, options.quiet);
    } catch (const Failure& failure) {
      complain(failure.what());
      if (session.result == kDone) session.result = kFailed;
    }
  }
}

}  // namespace

void add_check(CLI::App& app, Session& session) {
  auto options = std::make_shared<Options>();
  CLI::App* verb = app.add_subcommand("check", "Verify every rule of the file format; exit 3 when one is broken");
  verb->add_option("FILE", options->files, "Log files by path; none: the log that --file names")->check(not_empty);
  verb->add_option("--file", options->target, "A log by its name: log (the main log), e4, !wexocom0.log, ...")
      ->type_name("LOG");
  verb->add_flag("-q,--quiet", options->quiet, "Print complaints only");
  verb->add_flag("--no-lock", options->no_lock, "Do not take the log lock while reading");
  add_json(*verb, session);
  add_colour(*verb, session);
  verb->callback([options, &session] { check(*options, session); });
}

}  // namespace plov::ctl
