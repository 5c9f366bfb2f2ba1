// plovctl show: the events of a log, newest first, and those that are still to come.
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "crash_report.h"
#include "event_print.h"
#include "events.h"
#include "format_check.h"
#include "output.h"
#include "verbs.h"

namespace plov::ctl {
namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kFollowStart = 10;  // events shown before the waiting begins
constexpr uint32_t kFollowStep = 64;   // events asked for when the file has changed
constexpr std::chrono::milliseconds kFollowPause(100);

struct Options {
  std::vector<std::string> classes, types, users, blocks, patterns;
  std::string name, since, until, grep, target, timeout;
  std::optional<uint32_t> count;
  uint32_t until_match = 0;
  bool oldest_first = false, hexdump = false, follow = false, all = false, exit_empty = false, no_pager = false,
       crash = false;
};

template <typename Value>
std::vector<Value> numbers(const char* option, const std::vector<std::string>& texts) {
  std::vector<Value> values;
  for (const std::string& text : texts)
    values.push_back(static_cast<Value>(number(option, text, std::numeric_limits<Value>::max())));
  return values;
}

std::optional<Stamp> moment(const char* option, const std::string& text, bool utc) {
  if (text.empty()) return std::nullopt;
  const std::optional<Stamp> stamp = parse_time(text, stamp_now(), utc);
  if (!stamp)
    throw Usage(
        std::string(option) + " \"" + text +
        "\": expected 2026-11-25, \"2026-11-25 10:00:00.25\", 10:00, @seconds.hh, -2h, today, yesterday or now");
  return stamp;
}

// ID:HEX or ID:HEX/MASK.
Pattern pattern_of(const std::string& text) {
  const size_t colon = text.find(':');
  const std::optional<uint32_t> id = parse_number(text.substr(0, colon), 0xFF);
  const std::string bytes = colon == std::string::npos ? "" : text.substr(colon + 1);
  const size_t slash = bytes.find('/');
  std::optional<std::vector<uint8_t>> data = parse_hex_bytes(bytes.substr(0, slash));
  std::optional<std::vector<uint8_t>> mask =
      slash == std::string::npos && data ? std::vector<uint8_t>(data->size(), 0xFF)
                                         : parse_hex_bytes(slash == std::string::npos ? "" : bytes.substr(slash + 1));
  if (!id || !data || !mask || data->empty() || data->size() != mask->size())
    throw Usage("--pattern \"" + text + "\": expected ID:HEX or ID:HEX/MASK with a mask of the same length");
  return {static_cast<uint8_t>(*id), std::move(*data), std::move(*mask)};
}

Selection selection_of(const Options& options, const Session& session) {
  Selection selection;
  selection.classes = numbers<uint8_t>("--class", options.classes);
  selection.types = numbers<uint8_t>("--type", options.types);
  selection.users = numbers<uint16_t>("--user", options.users);
  selection.kept_blocks = numbers<uint8_t>("--block", options.blocks);
  selection.name = options.name;
  selection.grep = options.grep;
  selection.since = moment("--since", options.since, session.utc);
  selection.until = moment("--until", options.until, session.utc);
  for (const std::string& text : options.patterns) selection.patterns.push_back(pattern_of(text));
  if (options.crash) {
    selection.classes = {kCrashClass};
    selection.types = {kCrashType};
    selection.name = kCrashName;
  }
  return selection;
}

// A reader of the library may change a damaged file: it saves and replaces it, it finishes a prune. Whoever only looks
// should change nothing, so the file is judged first and then, if need be, read by other means.
std::optional<EventList> salvage_if_damaged(const LogName& log, std::vector<uint8_t>& bytes) {
  {
    const LogLock lock;
    bytes = read_whole_file(log.path);
  }
  const CheckResult result = check_format(bytes, [](Bytes) { return 0u; });
  if (result.clean()) return std::nullopt;
  const auto first =
      std::find_if(result.findings.begin(), result.findings.end(), [](const Finding& f) { return !f.note; });
  complain(log.path + " is damaged (" + counted(result.damage_count, "rule") +
           " broken, first: " + (first == result.findings.end() ? "" : to_text(*first)) +
           ");\n  shown is what can be read; the file is left as it is. Details: plovctl check");
  return EventList::salvage(bytes);
}

class Show {
 public:
  Show(const Options& options, Session& session)
      : options_(options),
        session_(session),
        selection_(selection_of(options, session)),
        log_(existing_log(options.target)) {}

  void run() {
    std::vector<uint8_t> bytes;
    std::optional<EventList> salvaged = salvage_if_damaged(log_, bytes);
    if (!options_.follow && !options_.no_pager) start_pager();
    if (salvaged) {
      session_.result = kDamage;
      salvaged->apply(selection_, limit());
      return print_all(*salvaged, options_.oldest_first);
    }
    if (options_.follow) return follow();
    // The library may stop at the limit only when nothing it selects is taken away afterwards.
    EventList list = options_.all ? EventList::fetch_with_copies(log_)
                                  : EventList::fetch(log_, selection_, selection_.library_decides() ? limit() : 0);
    list.apply(selection_, limit());
    print_all(list, options_.oldest_first);
    if (printed_ == 0 && options_.exit_empty) session_.result = kNothing;
  }

 private:
  uint32_t limit() const { return options_.count.value_or(0); }

  void print_all(const EventList& list, bool oldest_first) {
    const auto print_one = [&](const Event& event) {
      if (printed_++ == 0 && !session_.json && !options_.crash) print_table_head();
      if (options_.crash && !session_.json)
        print_crash_event(event, session_, options_.hexdump);
      else
        print_event(event, session_, options_.hexdump);
    };
    if (oldest_first)
      std::for_each(list.events.rbegin(), list.events.rend(), print_one);
    else
      std::for_each(list.events.begin(), list.events.end(), print_one);
    flush_output();
  }

  struct FileState {
    ino_t inode = 0;
    off_t size = 0;
    int64_t changed = 0;  // ns
    bool operator==(const FileState&) const = default;
  };
  FileState file_state() const {
    struct stat status;
    if (stat(log_.path.c_str(), &status) != 0) return {};
    return {status.st_ino, status.st_size, status.st_mtim.tv_sec * int64_t{1000000000} + status.st_mtim.tv_nsec};
  }

  void follow() {
    const std::optional<Clock::time_point> end = deadline();
    FileState state = file_state();
    const bool everything = options_.count ? false : selection_.since.has_value();
    EventList list = EventList::fetch(log_, selection_, 0);
    remember_newest(list);
    if (!options_.count || *options_.count != 0) {
      list.apply(selection_, everything ? 0 : options_.count.value_or(kFollowStart));
      print_all(list, true);
    }
    while (session_.result != kDamage && (options_.until_match == 0 || arrived_ < options_.until_match)) {
      if (end && Clock::now() >= *end) break;
      std::this_thread::sleep_for(kFollowPause);
      const FileState now = file_state();
      if (now == state || now.inode == 0) continue;
      state = now;
      std::vector<uint8_t> bytes;
      std::optional<EventList> salvaged = salvage_if_damaged(log_, bytes);
      if (!salvaged) {
        print_fresh(fetch_fresh());
        continue;
      }
      session_.result = kDamage;
      keep_fresh(*salvaged, true);
      print_fresh(std::move(*salvaged));
    }
    if (session_.result != kDamage && options_.exit_empty && (arrived_ < options_.until_match || printed_ == 0))
      session_.result = kNothing;
  }

  void print_fresh(EventList fresh) {
    if (fresh.events.empty()) return;
    remember_newest(fresh);
    fresh.apply(selection_, 0);
    if (options_.until_match != 0 && arrived_ + fresh.events.size() > options_.until_match)
      fresh.events.erase(fresh.events.begin(), fresh.events.end() - (options_.until_match - arrived_));
    arrived_ += static_cast<uint32_t>(fresh.events.size());
    print_all(fresh, true);
  }

  std::optional<Clock::time_point> deadline() const {
    if (options_.timeout.empty()) return std::nullopt;
    const std::optional<uint64_t> length = parse_duration(options_.timeout);
    if (!length) throw Usage("--timeout \"" + options_.timeout + "\": expected seconds, or a length like 30s or 2m");
    return Clock::now() + std::chrono::milliseconds(*length);
  }

  void remember_newest(const EventList& list) {
    if (list.events.empty()) return;
    newest_ = list.events.front();
    newest_->blocks.clear();
  }

  // Keeps what came after the newest event seen; false when an incomplete list does not tell. The clock may have been
  // set back in between, so the event itself is looked for; only when it has gone (pruned, its type changed) do the
  // stamps decide.
  bool keep_fresh(EventList& list, bool complete) const {
    if (!newest_) return complete;
    const auto seen = std::find_if(list.events.begin(), list.events.end(),
                                   [&](const Event& event) { return event.same_as(*newest_); });
    if (seen == list.events.end() && !complete) return false;
    if (seen != list.events.end())
      list.events.erase(seen, list.events.end());
    else
      std::erase_if(list.events, [&](const Event& event) { return event.stamp <= newest_->stamp; });
    return true;
  }

  EventList fetch_fresh() {
    for (uint32_t maximum : {kFollowStep, 0u}) {
      EventList list = EventList::fetch(log_, selection_, maximum);
      if (keep_fresh(list, maximum == 0 || list.events.size() < maximum)) return list;
    }
    return {};
  }

  const Options& options_;
  Session& session_;
  Selection selection_;
  LogName log_;
  std::optional<Event> newest_;
  uint64_t printed_ = 0;
  uint32_t arrived_ = 0;  // while following
};

}  // namespace

void add_show(CLI::App& app, Session& session) {
  auto options = std::make_shared<Options>();
  CLI::App* verb = app.add_subcommand("show", "Show events, newest first");
  add_number(*verb, "-n", options->count, "At most this many, the newest");
  verb->add_flag("--oldest-first", options->oldest_first, "Show in the order of recording");
  verb->add_option("--class", options->classes, "Of this class; may be repeated, as --type and --user")
      ->type_name("N")
      ->allow_extra_args(false);
  verb->add_option("--type", options->types, "Of this type")->type_name("N")->allow_extra_args(false);
  verb->add_option("--user", options->users, "Of this user code")->type_name("N")->allow_extra_args(false);
  verb->add_option("--name", options->name, "With this name; * and ? stand for other characters")
      ->type_name("NAME")
      ->check(not_empty);
  verb->add_option(
          "--since", options->since,
          "From this time on: 2026-11-25, \"2026-11-25 10:00:00.25\", 10:00, @SECONDS.HH, -2h, today, yesterday")
      ->type_name("TIME")
      ->check(not_empty);
  verb->add_option("--until", options->until, "Up to this time, itself included")->type_name("TIME")->check(not_empty);
  verb->add_option("--grep", options->grep, "With this text in any block")->check(not_empty);
  verb->add_option("--pattern", options->patterns, "With these bytes at the beginning of block ID; may be repeated")
      ->type_name("ID:HEX[/MASK]")
      ->allow_extra_args(false);
  verb->add_option("--block", options->blocks, "Show blocks of this id only; may be repeated")
      ->type_name("ID")
      ->allow_extra_args(false);
  verb->add_option("--file", options->target, "A log by its name: log (the main log), e4, !wexocom0.log, !PATH")
      ->type_name("LOG");
  verb->add_flag("--all", options->all, "Go on into the compressed copies");
  verb->add_flag("--crash", options->crash, "Show what crashed processes have reported, each report in full");
  verb->add_flag("--hex", options->hexdump, "Dump the blocks; with --json: add their bytes in hexadecimal");
  verb->add_flag("-f,--follow", options->follow, "Show the last 10 (or -n) events, then new ones as they come");
  add_number(*verb, "--until-match", options->until_match, "Follow: end after this many new events");
  verb->add_option("--timeout", options->timeout, "Follow: end after this time (seconds, or 2m)")
      ->type_name("TIME")
      ->check(not_empty);
  verb->add_flag("--exit-empty", options->exit_empty, "Exit 4 when nothing matched");
  verb->add_flag("--no-pager", options->no_pager, "Write to the terminal directly");
  add_json(*verb, session);
  add_utc(*verb, session);
  add_colour(*verb, session);
  verb->callback([options, &session] {
    if (!options->follow && (options->until_match != 0 || !options->timeout.empty()))
      throw Usage("--until-match and --timeout need --follow");
    if (options->crash &&
        !(options->classes.empty() && options->types.empty() && options->name.empty() && options->blocks.empty()))
      throw Usage("--crash chooses class, type, name and blocks by itself");
    if (options->follow && options->all) throw Usage("--all looks back, --follow ahead");
    if (!options->follow && options->count == 0u) throw Usage("-n 0 needs --follow");
    Show(*options, session).run();
  });
}

}  // namespace plov::ctl
