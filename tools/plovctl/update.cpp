// plovctl update and delete: change one event in place.
#include <cstring>
#include <string>
#include <vector>

#include "events.h"
#include "output.h"
#include "verbs.h"
#include "xlog.h"

namespace plov::ctl {
namespace {

struct Options {
  std::string event_class, type, user, time, text, hex_text, data_file, new_type, target;
};

xlog_event_identity identity_of(const Options& options, const Session& session) {
  const std::optional<Stamp> stamp = parse_time(options.time, stamp_now(), session.utc);
  if (!stamp) throw Usage("--time \"" + options.time + "\": expected @SECONDS.HH or \"2026-11-25 10:00:00.25\"");
  return {{static_cast<uint8_t>(number("--class", options.event_class, 0xFF)),
           static_cast<uint8_t>(number("--type", options.type, 0xFF)),
           static_cast<uint16_t>(number("--user", options.user, 0xFFFF))},
          {stamp->seconds, stamp->hundredths}};
}

// The library makes a damaged log anew, and writes over whatever follows a block that is too small: so the event is
// looked at first.
Event find_event(const LogName& log, const xlog_event_identity& identity) {
  Selection selection;
  selection.classes = {identity.eventid.classes};
  selection.types = {identity.eventid.log_type};
  selection.users = {identity.eventid.user};
  selection.since = selection.until = Stamp{identity.timestamp.seconds, identity.timestamp.hundredths};
  EventList list = EventList::fetch(log, selection, 0);
  list.apply(selection, 0);
  if (list.events.empty()) throw Failure("no event of " + log.path + " has this class, type, user code and time");
  Event found = list.events.front();
  for (Block& block : found.blocks) block.data = {static_cast<const uint8_t*>(nullptr), block.data.size()};
  return found;
}

std::vector<uint8_t> data_of(const Options& options) {
  if (!options.data_file.empty()) return read_block(options.data_file);
  if (options.hex_text.empty()) return {options.text.begin(), options.text.end()};
  std::optional<std::vector<uint8_t>> bytes = parse_hex_bytes(options.hex_text);
  if (!bytes) throw Usage("--hex \"" + options.hex_text + "\": expected pairs of hexadecimal digits");
  return std::move(*bytes);
}

template <class Request>
void change(const char* name, int32_t (*call)(Request*, uint32_t*), Request request, const LogName& log,
            const xlog_event_identity& identity) {
  request.identity = identity;
  memcpy(request.target_session, log.session.data(), log.session.size());
  uint32_t comprc = 0;
  const int32_t sysrc = call(&request, &comprc);
  if (sysrc != 0 || comprc != 0) throw CallFailure(name, log.path, Family::xlog, sysrc, comprc);
}

void report(const char* done, const LogName& log, const Session& session) {
  if (session.json)
    print_line(Json{{"done", done}, {"file", log.path}});
  else
    print(std::string(done) + " one event in " + log.path + "\n");
}

void update(const Options& options, const Session& session) {
  const xlog_event_identity identity = identity_of(options, session);
  const LogName log = existing_log(options.target);
  if (!options.new_type.empty()) {
    xlog_update_type_request request{};
    request.new_type = static_cast<uint8_t>(number("--new-type", options.new_type, 0xFF));
    find_event(log, identity);
    change("xlog_update_type", xlog_update_type, request, log, identity);
    return report("changed the type of", log, session);
  }
  const std::vector<uint8_t> data = data_of(options);
  for (const Block& block : find_event(log, identity).blocks) {
    if (block.id != XLOG_MODIFY_BLOCK_ID) continue;
    if (data.size() > block.data.size())
      throw Failure("the modify block has " + counted(block.data.size(), "byte") + ", the data " +
                    std::to_string(data.size()) + ": they would overwrite what follows in the file");
    break;
  }
  xlog_update_request request{};
  request.data_size = static_cast<uint32_t>(data.size());
  request.data = data.data();
  change("xlog_update_log", xlog_update_log, request, log, identity);
  report("updated", log, session);
}

void mark(const Options& options, const Session& session) {
  const xlog_event_identity identity = identity_of(options, session);
  const LogName log = existing_log(options.target);
  find_event(log, identity);
  change("xlog_mark_log_for_delete", xlog_mark_log_for_delete, xlog_mark_request{}, log, identity);
  report("deleted", log, session);
}

CLI::App* add_verb(CLI::App& app, Session& session, Options& options, const char* name, const char* help) {
  CLI::App* verb = app.add_subcommand(name, help);
  verb->add_option("--class", options.event_class, "The event's class")->type_name("N")->required();
  verb->add_option("--type", options.type, "Its type")->type_name("N")->required();
  verb->add_option("--user", options.user, "Its user code")->type_name("N")->required();
  verb->add_option("--time", options.time, "Its time to the hundredth: @SECONDS.HH or as show prints it")
      ->type_name("TIME")
      ->required();
  verb->add_option("--file", options.target, "A log by its name: log (the main log), e4, a short name, !PATH")
      ->type_name("LOG");
  add_json(*verb, session);
  add_utc(*verb, session);
  return verb;
}

}  // namespace

void add_update(CLI::App& app, Session& session) {
  auto options = std::make_shared<Options>();
  CLI::App* verb = add_verb(app, session, *options, "update", "Overwrite an event's modify block, or change its type");
  CLI::Option_group* what = verb->add_option_group("what");
  what->add_option("--text", options->text, "Text for the modify block");
  what->add_option("--hex", options->hex_text, "Bytes for the modify block")->type_name("HEX")->check(not_empty);
  what->add_option("--data-file", options->data_file, "Bytes from a file, - for standard input")->check(not_empty);
  what->add_option("--new-type", options->new_type, "The new type, 0 to 0xFF")->type_name("N")->check(not_empty);
  what->require_option(1);
  verb->callback([options, &session] { update(*options, session); });
}

void add_delete(CLI::App& app, Session& session) {
  auto options = std::make_shared<Options>();
  CLI::App* verb = add_verb(app, session, *options, "delete", "Mark one event as deleted");
  verb->callback([options, &session] { mark(*options, session); });
}

}  // namespace plov::ctl
