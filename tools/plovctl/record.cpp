// plovctl record: writes one event.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "escape.h"
#include "hex.h"
#include "log_source.h"
#include "output.h"
#include "times.h"
#include "verbs.h"
#include "xlog.h"

namespace plov::ctl {
namespace {

enum class Source { text, hex, file };

struct GivenBlock {
  Source source;
  uint8_t id;
  std::string value;
  bool is_standard_input() const { return source == Source::file && value == "-"; }
};

struct Options {
  std::string event_class, type, user = "0", name, target;
  bool standard = false, modify = false, error = false, analysis = false, hardware = false;
  std::vector<GivenBlock> blocks;
};

GivenBlock parse_block(Source source, const std::string& text) {
  const size_t equals = text.find('=');
  const std::optional<uint32_t> id = parse_number(text.substr(0, equals), 0xFF);
  if (equals == std::string::npos || !id) throw Usage("block \"" + text + "\": expected ID=..., ID from 0 to 0xFF");
  if (source == Source::file && equals + 1 == text.size()) throw Usage("--block-file \"" + text + "\": no file name");
  return {source, static_cast<uint8_t>(*id), text.substr(equals + 1)};
}

std::vector<uint8_t> bytes_of(const GivenBlock& block) {
  switch (block.source) {
    case Source::hex: {
      std::optional<std::vector<uint8_t>> bytes = parse_hex_bytes(block.value);
      if (!bytes) throw Usage("--block-hex \"" + block.value + "\": expected pairs of hexadecimal digits");
      return std::move(*bytes);
    }
    case Source::file:
      return read_block(block.value);
    default:
      return {block.value.begin(), block.value.end()};
  }
}

xlog_log_request build_request(const Options& options, const LogName& log) {
  xlog_log_request request{};
  if (options.hardware) request.flags |= XLOG_HARDWARE_BLOCK_FLAG;
  if (options.analysis) request.flags |= XLOG_PROBLEM_ANALYSIS_FLAG;
  if (options.standard) request.flags |= XLOG_STANDARD_LOG_FLAG;
  if (options.modify) request.flags |= XLOG_MODIFY_BLOCK_FLAG;
  if (options.error) request.flags |= XLOG_DISPLAY_AS_ERROR_FLAG;
  request.eventid.classes = static_cast<uint8_t>(number("--class", options.event_class, 0xFF));
  request.eventid.log_type = static_cast<uint8_t>(number("--type", options.type, 0xFF));
  request.eventid.user = static_cast<uint16_t>(number("--user", options.user, 0xFFFF));
  if (options.name.size() > XLOG_NAME_SIZE) throw Usage("--name \"" + options.name + "\": at most 12 bytes");
  memcpy(request.event_name, options.name.data(), options.name.size());
  memcpy(request.target_session, log.session.data(), log.session.size());
  return request;
}

void report(const xlog_log_request& request, const std::string& name, const LogName& log, const Session& session) {
  const Stamp stamp{request.timestamp.seconds, request.timestamp.hundredths};
  const xlog_eventid id = request.eventid;
  if (session.json) {
    Json line = {{"class", id.classes},
                 {"type", id.log_type},
                 {"user", +id.user},
                 {"name", name},
                 {"seconds", stamp.seconds},
                 {"hundredths", stamp.hundredths},
                 {"time", rfc3339(stamp, session.utc)},
                 {"file", log.path}};
    if (!is_utf8(name)) line["name_base64"] = base64({reinterpret_cast<const uint8_t*>(name.data()), name.size()});
    return print_line(line);
  }
  char seconds[24];
  snprintf(seconds, sizeof seconds, "@%u.%02u", stamp.seconds, stamp.hundredths);
  print("recorded class " + hex(id.classes, 2) + " type " + hex(id.log_type, 2) + " user " + hex(id.user, 4) + " \"" +
        escape(name) + "\" at " + table_time(stamp, session.utc) + " (" + seconds + ") in " + log.path + "\n");
}

void record(const Options& options, const Session& session) {
  const LogName log = resolve_log(options.target);
  xlog_log_request request = build_request(options, log);
  if (std::count_if(options.blocks.begin(), options.blocks.end(), std::mem_fn(&GivenBlock::is_standard_input)) > 1)
    throw Usage("--block-file: standard input can be read only once");
  std::vector<std::vector<uint8_t>> data;
  for (const GivenBlock& block : options.blocks) data.push_back(bytes_of(block));
  std::vector<xlog_data_node> nodes(data.size());
  for (size_t i = 0; i < nodes.size(); ++i) {
    if (data[i].size() > XLOG_MAX_BLOCK_SIZE)
      complain("block " + hex(options.blocks[i].id, 2) + ": more than 65280 bytes, of which the log keeps the first");
    nodes[i] = {static_cast<uint32_t>(data[i].size()), options.blocks[i].id, data[i].data(),
                i + 1 < nodes.size() ? &nodes[i + 1] : nullptr};
  }
  request.data = nodes.empty() ? nullptr : nodes.data();
  uint32_t comprc = 0;
  const int32_t sysrc = xlog_record(&request, &comprc);
  if (sysrc != 0 || comprc != 0) throw CallFailure("xlog_record", log.path, Family::xlog, sysrc, comprc);
  report(request, options.name, log, session);
}

}  // namespace

void add_record(CLI::App& app, Session& session) {
  auto options = std::make_shared<Options>();
  CLI::App* verb = app.add_subcommand("record", "Record one event; prints its identity and stamp");
  verb->add_option("--class", options->event_class, "Class, 0 to 0xFF; 0xAA is stored as 0xE5, 0x0A as 0xE4")
      ->type_name("N")
      ->required();
  verb->add_option("--type", options->type, "Type within the class, 0 to 0xFF")->type_name("N")->required();
  verb->add_option("--user", options->user, "User code, 0 to 0xFFFF")->type_name("N")->capture_default_str();
  verb->add_option("--name", options->name, "Event name, at most 12 bytes")->type_name("NAME");
  verb->add_flag("--standard", options->standard, "Add the standard block: the recording process");
  verb->add_flag("--modify", options->modify, "Add a modify block, for updates in place");
  verb->add_flag("--error", options->error, "Mark the event to be displayed as an error");
  verb->add_flag("--analysis", options->analysis, "Report the event to problem analysis");
  verb->add_flag("--hardware", options->hardware, "Set the hardware flag");
  verb->add_option("--file", options->target, "A log by its name: log (the main log), e4, a short name, !PATH")
      ->type_name("LOG");
  // Taken as they come, so that blocks of different options keep their order on the command line.
  const auto add_block = [&](const char* option, Source source, const char* help, const char* type) {
    verb->add_option_function<std::string>(
            option,
            [options, source](const std::string& text) { options->blocks.push_back(parse_block(source, text)); }, help)
        ->trigger_on_parse()
        ->type_name(type);
  };
  add_block("--block", Source::text, "A block of text; may be repeated, as the next two", "ID=TEXT");
  add_block("--block-hex", Source::hex, "A block of bytes", "ID=HEX");
  add_block("--block-file", Source::file, "A block from a file, - for standard input", "ID=PATH");
  add_json(*verb, session);
  add_utc(*verb, session);
  verb->callback([options, &session] { record(*options, session); });
}

}  // namespace plov::ctl
