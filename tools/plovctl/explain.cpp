// plovctl explain: what a result or reason code means.
#include <cstring>
#include <string>
#include <vector>

#include "hex.h"
#include "output.h"
#include "verbs.h"

namespace plov::ctl {
namespace {

Json to_json(const Code& code) {
  return {{"family", family_name(code.family)},
          {"code", code.value},
          {"notation", notation(code.family, code.value)},
          {"name", code.name},
          {"raised_by", code.raised_by},
          {"meaning", code.meaning},
          {"action", code.action}};
}

void print_code(const Code& code, const Session& session) {
  if (session.json) return print_line(to_json(code));
  print(paint(std::string(family_name(code.family)) + " " + notation(code.family, code.value), Colour::bold) +
        (*code.name ? std::string("  ") + code.name : "") + "\n  " + code.meaning + "\n  raised by: " + code.raised_by +
        "\n  what to do: " + code.action + "\n");
}

// Numbers in decimal or 0x, and the names of the constants.
void explain(std::vector<std::string> words, Session& session) {
  if (words.empty()) {
    for (const Code& code : all_codes()) print_code(code, session);
    return;
  }
  const bool is_sysrc = words[0] == "sysrc";
  if (is_sysrc) words.erase(words.begin());
  if (words.empty()) throw Usage("explain sysrc: which result?");
  for (const std::string& word : words) {
    std::vector<const Code*> codes;
    if (const Code* named = find_code_by_name(word)) {
      codes = {named};
    } else {
      const std::optional<uint32_t> value = parse_number(word, UINT32_MAX);
      if (!value) throw Usage("explain " + word + ": neither a number (decimal or 0x) nor the name of a code");
      codes = is_sysrc ? find_codes(Family::sysrc, *value) : find_codes(*value);
      if (!is_sysrc && *value > 0 && *value < 134) {
        const char* text = strerror(static_cast<int>(*value));
        if (session.json)
          print_line({{"family", "errno"}, {"code", *value}, {"notation", std::to_string(*value)}, {"meaning", text}});
        else
          print(paint("errno " + std::to_string(*value), Colour::bold) + "\n  " + text +
                "\n  raised by: the file services pass on the errno of a failed system call\n");
        if (codes.empty()) continue;
      }
    }
    if (codes.empty()) {
      complain("explain " + word + ": no such code");
      session.result = kFailed;
    }
    for (const Code* code : codes) print_code(*code, session);
  }
}

}  // namespace

void add_explain(CLI::App& app, Session& session) {
  auto words = std::make_shared<std::vector<std::string>>();
  CLI::App* verb = app.add_subcommand("explain", "What a code means, who raises it, what to do; alone: every code");
  verb->add_option("CODE", *words, "A comprc in decimal or 0x, its constant's name, or: sysrc N");
  add_json(*verb, session);
  add_colour(*verb, session);
  verb->callback([words, &session] { explain(*words, session); });
}

}  // namespace plov::ctl
