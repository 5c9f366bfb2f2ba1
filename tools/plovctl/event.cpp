// plovctl event: records one system event, the variables of a message.
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "escape.h"
#include "hex.h"
#include "log_source.h"
#include "output.h"
#include "verbs.h"
#include "xlog.h"

namespace plov::ctl {
namespace {

struct Variable {
  uint32_t kind;
  std::vector<uint8_t> bytes;
};

struct Options {
  std::string user, name, target, tower, extra_file;
  bool informational = false, standard = false, error = false, analysis = false;
  std::vector<Variable> variables;
};

Variable text_variable(const std::string& text) {
  return {XLOG_VARIABLE_TEXT, {text.begin(), text.end()}};
}

Variable bytes_variable(const char* option, uint32_t kind, const std::string& text) {
  std::optional<std::vector<uint8_t>> bytes = parse_hex_bytes(text);
  if (!bytes) throw Usage(std::string(option) + " \"" + text + "\": expected pairs of hexadecimal digits");
  return {kind, std::move(*bytes)};
}

uint16_t flags(const Options& options) {
  uint16_t flags = 0;
  if (options.informational) flags |= XLOG_KEEP_INFORMATIONAL;
  if (options.standard) flags |= XLOG_STANDARD_LOG_FLAG;
  if (options.error) flags |= XLOG_DISPLAY_AS_ERROR_FLAG;
  if (options.analysis) flags |= XLOG_PROBLEM_ANALYSIS_FLAG;
  return flags;
}

// The fields that both requests have.
template <class Event>
Event event_of(const Options& options, xlog_variable* variables) {
  Event event{};
  event.options = flags(options);
  event.user = static_cast<uint16_t>(number("--user", options.user, 0xFFFF));
  if (options.name.size() > XLOG_NAME_SIZE) throw Usage("--name \"" + options.name + "\": at most 12 bytes");
  memcpy(event.event_name, options.name.data(), options.name.size());
  event.variables = variables;
  event.tower = options.tower.empty() ? nullptr : options.tower.c_str();
  return event;
}

void record(const Options& options, const Session& session) {
  std::deque<xlog_variable> nodes;
  for (const Variable& variable : options.variables) {
    if (variable.bytes.size() > UINT16_MAX) throw Usage("a variable has at most 65535 bytes");
    nodes.push_back({variable.kind, static_cast<uint16_t>(variable.bytes.size()), variable.bytes.data(), nullptr});
    if (nodes.size() > 1) nodes[nodes.size() - 2].next = &nodes.back();
  }
  xlog_variable* const first = nodes.empty() ? nullptr : &nodes.front();
  const bool extra = !options.extra_file.empty();
  if (extra && !options.target.empty() && options.target != "e4")
    throw Usage("--extra-file: only the log e4 takes extra data");

  const LogName log = resolve_log(extra ? "e4" : options.target);
  uint32_t comprc = 0;
  int32_t sysrc;
  if (extra) {
    const std::vector<uint8_t> data = read_block(options.extra_file);
    if (data.size() > XLOG_MAX_BLOCK_SIZE)
      complain(options.extra_file + ": more than 65280 bytes, of which the log keeps the first");
    auto event = event_of<xlog_e4_system_event>(options, first);
    event.extra_size = static_cast<uint32_t>(data.size());
    event.extra_data = data.data();
    sysrc = xlog_e4_sysevent(&event, &comprc);
  } else {
    auto event = event_of<xlog_system_event>(options, first);
    memcpy(event.target_session, log.session.data(), log.session.size());
    sysrc = xlog_sysevent(&event, &comprc);
  }
  if (sysrc != 0 || comprc != 0)
    throw CallFailure(extra ? "xlog_e4_sysevent" : "xlog_sysevent", log.path, Family::xlog, sysrc, comprc);
  if (session.json)
    return print_line(Json{{"user", number("--user", options.user, 0xFFFF)},
                           {"name", options.name},
                           {"variables", options.variables.size()},
                           {"file", log.path}});
  print("recorded system event " + hex(number("--user", options.user, 0xFFFF), 4) + " \"" + escape(options.name) +
        "\" with " + std::to_string(options.variables.size()) +
        (options.variables.size() == 1 ? " variable in " : " variables in ") + log.path + "\n");
}

}  // namespace

void add_event(CLI::App& app, Session& session) {
  auto options = std::make_shared<Options>();
  CLI::App* verb = app.add_subcommand("event", "Record one system event: a message's number and its variables");
  verb->add_option("--user", options->user, "User code, which is the message's number, 0 to 0xFFFF")
      ->type_name("N")
      ->required();
  verb->add_option("--name", options->name, "Event name, at most 12 bytes")->type_name("NAME");
  verb->add_option("--tower", options->tower, "Text of the tower block")->type_name("TEXT");
  // Taken as they come, so that variables of different options keep their order on the command line.
  const auto add_variable = [&](const char* option, const char* help, const char* type, auto make) {
    const auto take = [options, make](const std::string& text) { options->variables.push_back(make(text)); };
    verb->add_option_function<std::string>(option, take, help)->trigger_on_parse()->type_name(type);
  };
  add_variable("--var", "A variable of text (empty: no text); may be repeated, as the next two", "TEXT", text_variable);
  add_variable("--var-host", "A variable of text given by its bytes in code page 500", "HEX",
               [](const std::string& text) { return bytes_variable("--var-host", XLOG_VARIABLE_CONVERTED, text); });
  add_variable("--var-hex", "A variable of bytes, shown as hexadecimal digits", "HEX",
               [](const std::string& text) { return bytes_variable("--var-hex", XLOG_VARIABLE_HEX, text); });
  verb->add_option("--extra-file", options->extra_file, "Extra data from a file, - for standard input; into the log e4")
      ->type_name("PATH");
  verb->add_flag("--informational", options->informational, "Keep as information: type 1 in place of 0");
  verb->add_flag("--standard", options->standard, "Add the standard block: the recording process");
  verb->add_flag("--error", options->error, "Mark the event to be displayed as an error");
  verb->add_flag("--analysis", options->analysis, "Report the event to problem analysis");
  verb->add_option("--file", options->target, "A log by its name: log (the main log), e4, a short name, !PATH")
      ->type_name("LOG");
  add_json(*verb, session);
  verb->callback([options, &session] { record(*options, session); });
}

}  // namespace plov::ctl
