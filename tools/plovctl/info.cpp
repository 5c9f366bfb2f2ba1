// plovctl info: how full a log file is and what is in it.
#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "escape.h"
#include "expand.h"
#include "format_check.h"
#include "log_source.h"
#include "output.h"
#include "times.h"
#include "verbs.h"

namespace plov::ctl {
namespace {

constexpr size_t kBarWidth = 40;

struct Options {
  std::vector<std::string> files;
  std::vector<std::string> targets;
};

struct ClassTally {
  uint32_t logs = 0;
  uint64_t bytes = 0;
};

struct Summary {
  std::optional<xlog_file_header> header;
  LogLayout layout;
  uint32_t deleted = 0;
  uint64_t deleted_bytes = 0;
  std::array<ClassTally, 256> classes{};
  std::optional<xlog_log_info> first, last;  // events not deleted
};

Summary summarise(Bytes file) {
  Summary summary;
  summary.header = load_file_header(file);
  if (!summary.header) return summary;
  summary.layout = lay_out(file, *summary.header);
  for (uint32_t offset : summary.layout.logs) {
    const xlog_log_info info = load_log(file, offset, summary.layout.end).info;
    if (info.log_flags == XLOG_LOG_DELETED) {
      ++summary.deleted;
      summary.deleted_bytes += info.total_log_size;
      continue;
    }
    ClassTally& tally = summary.classes[info.eventid.classes];
    ++tally.logs;
    tally.bytes += info.total_log_size;
    if (!summary.first) summary.first = info;
    summary.last = info;
  }
  return summary;
}

std::string words(uint16_t flags) {
  std::string text;
  const auto add = [&](uint16_t bit, const char* word) {
    if (flags & bit) text += (text.empty() ? "" : ", ") + std::string(word);
  };
  add(XLOG_FILE_PRUNE_IN_PROGRESS, "prune in progress");
  add(XLOG_FILE_UTC_OFFSET, "UTC offset blocks");
  add(XLOG_VERSION_CONTROL_FLAG, "versioned standard blocks");
  add(XLOG_FILE_SINGLE_STAGE, "single stage (no compressed copy)");
  return text.empty() ? "none" : text;
}

Stamp stamp_of(const xlog_log_info& info) {
  return {info.timestamp.seconds, info.timestamp.hundredths};
}

std::string event_text(const std::optional<xlog_log_info>& info, bool utc) {
  if (!info) return "none";
  return table_time(stamp_of(*info), utc) + "  class " + hex(info->eventid.classes, 2) + " type " +
         hex(info->eventid.log_type, 2) + " user " + hex(info->eventid.user, 4) + " \"" +
         escape(trim_field(info->event_name, XLOG_NAME_SIZE)) + "\"";
}

Json event_json(const std::optional<xlog_log_info>& info, bool utc) {
  if (!info) return nullptr;
  return {{"seconds", +info->timestamp.seconds},
          {"hundredths", info->timestamp.hundredths},
          {"time", rfc3339(stamp_of(*info), utc)},
          {"class", info->eventid.classes},
          {"type", info->eventid.log_type},
          {"user", +info->eventid.user},
          {"name", std::string(trim_field(info->event_name, XLOG_NAME_SIZE))}};
}

void report_json(const std::string& path, size_t size, const Summary& summary, bool damaged, bool utc) {
  const xlog_file_header& header = *summary.header;
  const uint64_t limit = header.max_file_size * uint64_t{XLOG_SIZE_UNIT};
  Json classes = Json::array();
  for (size_t c = 0; c < summary.classes.size(); ++c)
    if (summary.classes[c].logs != 0)
      classes.push_back({{"class", c}, {"events", summary.classes[c].logs}, {"bytes", summary.classes[c].bytes}});
  print_line({{"file", path},
              {"bytes", size},
              {"file_size", +header.file_size},
              {"limit", limit},
              {"room", limit > header.file_size ? limit - header.file_size : 0},
              {"largest_event", header.max_single_log_size * uint64_t{XLOG_SIZE_UNIT}},
              {"modify_block_size", +header.modify_block_size},
              {"flags", +header.file_flags},
              {"events", summary.layout.logs.size() - summary.deleted},
              {"deleted", summary.deleted},
              {"deleted_bytes", summary.deleted_bytes},
              {"first", event_json(summary.first, utc)},
              {"last", event_json(summary.last, utc)},
              {"classes", classes},
              {"damaged", damaged}});
}

std::string bar(uint64_t part, uint64_t largest) {
  const size_t length = largest == 0 ? 0 : static_cast<size_t>((part * kBarWidth + largest - 1) / largest);
  return std::string(length, '#');
}

void report_text(const std::string& path, const Summary& summary, bool damaged, bool utc) {
  const xlog_file_header& header = *summary.header;
  const uint64_t limit = header.max_file_size * uint64_t{XLOG_SIZE_UNIT};
  const uint64_t room = limit > header.file_size ? limit - header.file_size : 0;
  const auto line = [](const char* name, const std::string& value) { print("  " + pad(name, 15) + value + "\n"); };
  print(paint(path, Colour::bold) + (damaged ? paint(" (damaged: plovctl check)", Colour::red) : "") + "\n");
  line("size", grouped(header.file_size) + " bytes of " + grouped(limit) +
                   (limit == 0 ? "" : " (" + std::to_string(header.file_size * uint64_t{100} / limit) + " %)") + ", " +
                   grouped(room) + " left");
  line("largest event", grouped(header.max_single_log_size * uint64_t{XLOG_SIZE_UNIT}) + " bytes");
  line("flags", hex(header.file_flags, 4) + " " + words(header.file_flags));
  line("events", grouped(summary.layout.logs.size() - summary.deleted) + ", and " + grouped(summary.deleted) +
                     " deleted (" + grouped(summary.deleted_bytes) + " bytes)");
  line("first", event_text(summary.first, utc));
  line("last", event_text(summary.last, utc));
  uint64_t largest = 0;
  for (const ClassTally& tally : summary.classes) largest = std::max<uint64_t>(largest, tally.logs);
  for (size_t c = 0; c < summary.classes.size(); ++c) {
    const ClassTally& tally = summary.classes[c];
    if (tally.logs != 0)
      print("  class " + hex(c, 2) + "  " + pad(counted(tally.logs, "event"), 16) +
            pad(grouped(tally.bytes) + " bytes", 20) + paint(bar(tally.logs, largest), Colour::cyan) + "\n");
  }
}

void info(const Options& options, Session& session) {
  std::vector<std::string> paths;
  for (const std::string& file : options.files) paths.push_back(given_path(file));
  for (const std::string& target : options.targets) paths.push_back(existing_log(target).path);
  if (paths.empty()) paths.push_back(existing_log("").path);
  for (const std::string& path : paths) {
    std::vector<uint8_t> bytes;
    {
      const LogLock lock;
      bytes = read_whole_file(path);
    }
    const Summary summary = summarise(bytes);
    if (!summary.header) {
      complain(path + ": " + std::to_string(bytes.size()) + " bytes, too short for a log file");
      session.result = kDamage;
      continue;
    }
    const bool damaged = !check_format(bytes, expanded_length).clean();
    if (damaged) session.result = kDamage;
    if (session.json)
      report_json(path, bytes.size(), summary, damaged, session.utc);
    else
      report_text(path, summary, damaged, session.utc);
  }
}

}  // namespace

void add_info(CLI::App& app, Session& session) {
  auto options = std::make_shared<Options>();
  CLI::App* verb = app.add_subcommand("info", "How full a log file is and what is in it");
  verb->add_option("FILE", options->files, "Log files by path; none: the logs that --file names, or the main log")
      ->check(not_empty);
  verb->add_option("--file", options->targets, "A log by its name: log (the main log), e4, !wexocom0.log, ...")
      ->type_name("LOG")
      ->allow_extra_args(false);
  add_json(*verb, session);
  add_utc(*verb, session);
  add_colour(*verb, session);
  verb->callback([options, &session] { info(*options, session); });
}

}  // namespace plov::ctl
