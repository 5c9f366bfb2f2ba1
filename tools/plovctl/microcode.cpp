// plovctl microcode: records one microcode entry, as a component does that meets an error of its own code.
#include <cstring>
#include <string>

#include "escape.h"
#include "hex.h"
#include "log_source.h"
#include "output.h"
#include "verbs.h"
#include "xlog.h"

namespace plov::ctl {
namespace {

struct Options {
  std::string type, user = "0", code, extension = "0", name, data, target;
  bool error = false, analysis = false, no_trace = false, always = false;
};

xlog_microcode_request build_request(const Options& options, const LogName& log) {
  xlog_microcode_request request{};
  request.type = static_cast<uint8_t>(number("--type", options.type, 0xFF));
  request.user = static_cast<uint16_t>(number("--user", options.user, 0xFFFF));
  request.error_code = static_cast<uint16_t>(number("--code", options.code, 0xFFFF));
  request.extension = number("--extension", options.extension, UINT32_MAX);
  request.options = XLOG_MICROCODE_NO_BACKTRACE;  // it would be this program's
  if (options.error) request.options |= XLOG_DISPLAY_AS_ERROR_FLAG;
  if (options.analysis) request.options |= XLOG_PROBLEM_ANALYSIS_FLAG;
  if (options.always) request.options |= XLOG_MICROCODE_ALWAYS;
  if (options.no_trace)
    request.options |= XLOG_MICROCODE_NO_THREAD_TRACE | XLOG_MICROCODE_NO_PROCESS_TRACE | XLOG_MICROCODE_NO_TRACE;
  if (options.name.size() > XLOG_NAME_SIZE) throw Usage("--name \"" + options.name + "\": at most 12 bytes");
  memcpy(request.event_name, options.name.data(), options.name.size());
  memcpy(request.target_session, log.session.data(), log.session.size());
  request.data = options.data.data();
  request.data_size = static_cast<uint32_t>(options.data.size());
  return request;
}

void record(const Options& options, const Session& session) {
  const LogName log = resolve_log(options.target);
  xlog_microcode_request request = build_request(options, log);
  uint32_t comprc = 0;
  const int32_t sysrc = xlog_microcode_log(&request, &comprc);
  if (sysrc != 0 || comprc != 0) throw CallFailure("xlog_microcode_log", log.path, Family::xlog, sysrc, comprc);
  const bool recorded = request.timestamp.seconds != 0;
  const std::string code = hex(request.error_code, 4), extension = hex(request.extension, 1);
  if (session.json)
    return print_line(Json{{"recorded", recorded}, {"error_code", code}, {"extension", extension}, {"file", log.path}});
  print(recorded ? "recorded microcode entry " + code + ", extension " + extension + " in " + log.path + "\n"
                 : "not recorded: system information field 16 is not 0 (--always records all the same)\n");
}

}  // namespace

void add_microcode(CLI::App& app, Session& session) {
  auto options = std::make_shared<Options>();
  CLI::App* verb = app.add_subcommand("microcode", "Record one microcode entry: an error code and the recent trace");
  verb->add_option("--type", options->type, "Type, 0 to 0xFF")->type_name("N")->required();
  verb->add_option("--code", options->code, "Error code, 0 to 0xFFFF")->type_name("N")->required();
  verb->add_option("--extension", options->extension, "Extension of the code")->type_name("N")->capture_default_str();
  verb->add_option("--user", options->user, "User code, 0 to 0xFFFF")->type_name("N")->capture_default_str();
  verb->add_option("--name", options->name, "Event name, at most 12 bytes")->type_name("NAME");
  verb->add_option("--data", options->data, "Data of the entry")->type_name("TEXT");
  verb->add_flag("--error", options->error, "Mark the entry to be displayed as an error");
  verb->add_flag("--analysis", options->analysis, "Report the entry to problem analysis");
  verb->add_flag("--no-trace", options->no_trace, "Without the recent trace");
  verb->add_flag("--always", options->always, "Whatever system information field 16 says");
  verb->add_option("--file", options->target, "A log by its name: log (the main log), e4, a short name, !PATH")
      ->type_name("LOG");
  add_json(*verb, session);
  verb->callback([options, &session] { record(*options, session); });
}

}  // namespace plov::ctl
