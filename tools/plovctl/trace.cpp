// plovctl trace: the newest lines of the trace ring.
#include <algorithm>
#include <cctype>
#include <chrono>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "escape.h"
#include "output.h"
#include "trace_filter.h"
#include "verbs.h"
#include "xtr.h"

namespace plov::ctl {
namespace {

constexpr uint32_t kFetchSize = 4 << 20;  // of a ring full of long lines the oldest are left out
constexpr std::chrono::milliseconds kFollowPause(100);

struct Options {
  std::optional<uint32_t> count, pid;
  TraceFilter filter;
  bool follow = false;
};

std::string fetch(const Options& options) {
  std::string text(kFetchSize, '\0');
  uint32_t count = 0, code = 0;
  const int32_t result = options.pid ? xtr_fetch_of(*options.pid, text.data(), kFetchSize, 1, &count, &code)
                                     : xtr_fetch(text.data(), kFetchSize, 1, &count, &code);
  if (result != 0)
    throw Failure(std::string(options.pid ? "xtr_fetch_of" : "xtr_fetch") + ": result " + std::to_string(result) +
                  ", code " + std::to_string(code) + ": there is no trace ring of this user yet, or it cannot be read");
  text.resize(std::min<size_t>(count, kFetchSize));
  return text;
}

void print_trace_line(std::string_view line, const Session& session) {
  const TraceTag tag = find_tag(line);
  if (session.json)
    return print_line({{"line", std::string(line)},
                       {"tag", tag.name},
                       {"level", tag.level ? std::string(1, tag.level) : ""},
                       {"text", std::string(line.substr(tag.name.empty() ? 0 : tag.position + 10))}});
  const Colour colour = tag.level == 'F' ? Colour::yellow : tag.level == 'T' ? Colour::cyan : Colour::plain;
  print(escape(line.substr(0, tag.position)) + paint(escape(line.substr(tag.position)), colour) + "\n");
}

void trace(const Options& options, const Session& session) {
  const std::string text = fetch(options);
  const std::vector<std::string_view> all = split_lines(text);
  std::vector<std::string_view> lines;
  std::copy_if(all.begin(), all.end(), std::back_inserter(lines),
               [&](std::string_view line) { return options.filter.matches(line); });
  const size_t wanted = options.count.value_or(options.follow ? 10u : 100u);
  for (size_t i = lines.size() > wanted ? lines.size() - wanted : 0; i < lines.size(); ++i)
    print_trace_line(lines[i], session);
  if (!options.follow) return;
  std::string last = all.empty() ? "" : std::string(all.back());
  for (;;) {
    flush_output();
    std::this_thread::sleep_for(kFollowPause);
    const std::string fresh_text = fetch(options);
    const std::vector<std::string_view> fresh = split_lines(fresh_text);
    const size_t first = after_line(fresh, last);
    if (first == 0 && !last.empty() && !fresh.empty()) complain("lines were lost: the trace ring has turned over");
    for (size_t i = first; i < fresh.size(); ++i)
      if (options.filter.matches(fresh[i])) print_trace_line(fresh[i], session);
    if (!fresh.empty()) last = fresh.back();
  }
}

}  // namespace

void add_trace(CLI::App& app, Session& session) {
  auto options = std::make_shared<Options>();
  CLI::App* verb = app.add_subcommand("trace", "The newest lines of the trace");
  add_number(*verb, "-n", options->count, "At most this many lines (100, following 10)");
  add_number(*verb, "--pid", options->pid, "Lines of this process, dead or alive");
  verb->add_option("--tag", options->filter.tag, "Lines whose tag begins so: XLOG, XDFC, XPCE, ...")->check(not_empty);
  verb->add_option("--level", options->filter.levels, "Lines of these levels: T entry and exit, D detail, F failure")
      ->check(not_empty);
  verb->add_option("--grep", options->filter.grep, "Lines with this text")->check(not_empty);
  verb->add_flag("-f,--follow", options->follow, "Go on with new lines as they come");
  add_json(*verb, session);
  add_colour(*verb, session);
  verb->callback([options, &session] {
    for (char& letter : options->filter.levels) letter = static_cast<char>(toupper(static_cast<unsigned char>(letter)));
    if (options->filter.levels.find_first_not_of("TDF") != std::string::npos)
      throw Usage("--level \"" + options->filter.levels + "\": expected letters of T, D and F");
    trace(*options, session);
  });
}

}  // namespace plov::ctl
