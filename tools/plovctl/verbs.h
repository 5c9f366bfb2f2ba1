// The verbs of plovctl. Each adds its own subcommand; the callback does the work and throws Failure.
#ifndef PLOV_CTL_VERBS_H
#define PLOV_CTL_VERBS_H

#include <CLI/CLI.hpp>

#include "failure.h"
#include "hex.h"

namespace plov::ctl {

// What every verb shares, and what the run ends with.
struct Session {
  bool json = false;
  bool utc = false;
  std::string colour = "auto";
  std::string root;
  Exit result = kDone;
};

void add_check(CLI::App& app, Session& session);
void add_dump(CLI::App& app, Session& session);
void add_delete(CLI::App& app, Session& session);
void add_doctor(CLI::App& app, Session& session);
void add_event(CLI::App& app, Session& session);
void add_explain(CLI::App& app, Session& session);
void add_info(CLI::App& app, Session& session);
void add_init(CLI::App& app, Session& session);
void add_ls(CLI::App& app, Session& session);
void add_microcode(CLI::App& app, Session& session);
void add_path(CLI::App& app, Session& session);
void add_prune(CLI::App& app, Session& session);
void add_purge(CLI::App& app, Session& session);
void add_record(CLI::App& app, Session& session);
void add_restart(CLI::App& app, Session& session);
void add_show(CLI::App& app, Session& session);
void add_sim(CLI::App& app, Session& session);
void add_snapshot(CLI::App& app, Session& session);
void add_spawn(CLI::App& app, Session& session);
void add_trace(CLI::App& app, Session& session);
void add_trim(CLI::App& app, Session& session);
void add_update(CLI::App& app, Session& session);

inline void add_json(CLI::App& verb, Session& session) {
  verb.add_flag("--json", session.json, "One JSON object a line");
}
inline void add_utc(CLI::App& verb, Session& session) {
  verb.add_flag("--utc", session.utc, "Show times in UTC");
}
inline void add_colour(CLI::App& verb, Session& session) {
  verb.add_option("--color", session.colour, "Use colour: auto, always or never")
      ->check(CLI::IsMember({"auto", "always", "never"}));
}

// An empty value is most often a variable that a script has not set; as "no value" it would choose everything.
inline std::string not_empty(const std::string& text) {
  return text.empty() ? "the value is empty" : "";
}

inline uint32_t number(const std::string& option, const std::string& text, uint32_t maximum) {
  const std::optional<uint32_t> value = parse_number(text, maximum);
  if (!value)
    throw Usage(option + " \"" + text + "\": expected a number from 0 to " + hex(maximum, 1) + ", decimal or 0x");
  return *value;
}

// CLI11 would read a leading 0 as octal.
template <typename Target>
CLI::Option* add_number(CLI::App& verb, const std::string& name, Target& target, const std::string& help) {
  const auto take = [name, &target](const std::string& text) { target = number(name, text, UINT32_MAX); };
  return verb.add_option_function<std::string>(name, take, help)->type_name("N");
}

}  // namespace plov::ctl

#endif
