// plovctl doctor: looks over the console directory and what its processes share; each diagnosis comes with its remedy.
#include <algorithm>
#include <string>

#include "health.h"
#include "output.h"
#include "verbs.h"

namespace plov::ctl {
namespace {

constexpr size_t kWordWidth = 9, kAboutWidth = 17;

const char* word(Health health) {
  return health == Health::good ? "ok" : health == Health::notice ? "note" : "PROBLEM";
}

Colour colour(Health health) {
  return health == Health::good ? Colour::green : health == Health::notice ? Colour::yellow : Colour::red;
}

// The further lines of a text below the first.
std::string indented(const std::string& text, size_t width) {
  std::string lines;
  for (const char c : text) lines += c == '\n' ? "\n" + std::string(width, ' ') : std::string(1, c);
  return lines;
}

void print_diagnosis(const Diagnosis& diagnosis) {
  print(paint(pad(word(diagnosis.health), kWordWidth), colour(diagnosis.health)) + pad(diagnosis.about, kAboutWidth) +
        indented(diagnosis.found, kWordWidth + kAboutWidth) + "\n");
  if (!diagnosis.remedy.empty()) print(std::string(kWordWidth + kAboutWidth, ' ') + "-> " + diagnosis.remedy + "\n");
}

void doctor(Session& session) {
  Diagnoses diagnoses;
  if (check_directory(diagnoses)) {
    check_configuration(diagnoses);
    check_logs(diagnoses);
    check_leftovers(diagnoses);
  }
  check_semaphores(diagnoses);
  check_map(diagnoses);
  check_daemon(diagnoses);
  for (const Diagnosis& diagnosis : diagnoses) {
    if (session.json)
      print_line(Json{{"health", diagnosis.health == Health::problem ? "problem" : word(diagnosis.health)},
                      {"about", diagnosis.about},
                      {"found", diagnosis.found},
                      {"remedy", diagnosis.remedy}});
    else
      print_diagnosis(diagnosis);
  }
  if (std::ranges::any_of(diagnoses, [](const Diagnosis& diagnosis) { return diagnosis.health == Health::problem; }))
    session.result = kFailed;
}

}  // namespace

void add_doctor(CLI::App& app, Session& session) {
  CLI::App* verb =
      app.add_subcommand("doctor", "Look over directory, logs, locks, map and daemon; exit 1 with a problem");
  add_json(*verb, session);
  add_colour(*verb, session);
  verb->callback([&session] { doctor(session); });
}

}  // namespace plov::ctl
