// plovctl dump: what stands in a log file, offset by offset, as it stands.
#include <cstring>
#include <string>
#include <vector>

#include "blocks.h"
#include "escape.h"
#include "log_layout.h"
#include "log_source.h"
#include "output.h"
#include "times.h"
#include "verbs.h"

namespace plov::ctl {
namespace {

constexpr uint32_t kFirstBytes = 16;

struct Options {
  std::string file;
  std::string target;
  uint32_t bytes = kFirstBytes;
  bool no_lock = false;
};

std::string field_line(const std::string& name, const std::string& value) {
  return "  " + pad(name, 24) + value + "\n";
}

std::string link_text(uint32_t offset) {
  return offset == 0 ? "0 (none)" : std::to_string(offset);
}

const char* reason(Flaw flaw) {
  switch (flaw) {
    case Flaw::header_cut:
      return "a log header that is cut off";
    case Flaw::too_many_blocks:
      return "a log with more than 256 blocks";
    case Flaw::size_below_header:
      return "a log shorter than its header";
    case Flaw::size_beyond_end:
      return "a log that ends behind the data";
    default:
      return "";
  }
}

class Dump {
 public:
  Dump(Bytes file, const Options& options, const Session& session)
      : file_(file), bytes_(options.bytes), json_(session.json), utc_(session.utc) {}

  // The result is set before anything is printed, so that a reader who leaves early takes nothing from it.
  void run(Exit& result) {
    const std::optional<xlog_file_header> header = load_file_header(file_);
    if (!header) {
      result = kDamage;
      return rest(0, file_.size(), "too short for a file header");
    }
    const LogLayout layout = lay_out(file_, *header);
    if (!layout.gaps.empty() || layout.end != header->file_size || header->file_size < XLOG_FILE_HEADER_SIZE)
      result = kDamage;
    file_header(*header);
    size_t gap = 0;
    for (uint32_t offset : layout.logs) {
      for (; gap < layout.gaps.size() && layout.gaps[gap].begin < offset; ++gap) print_gap(layout.gaps[gap]);
      log(offset, layout.end);
    }
    for (; gap < layout.gaps.size(); ++gap) print_gap(layout.gaps[gap]);
    const size_t end = std::max<size_t>(layout.end, XLOG_FILE_HEADER_SIZE);
    if (file_.size() > end) rest(end, file_.size(), "beyond file_size");
  }

 private:
  void file_header(const xlog_file_header& header) {
    Json classes = Json::object();
    std::string lines;
    for (uint32_t c = 0; c < 256; ++c) {
      const uint32_t offset = header.class_last_log[c];
      if (offset == 0) continue;
      classes[hex(c, 2)] = offset;
      lines += field_line("class_last_log[" + hex(c, 2) + "]", link_text(offset));
    }
    if (json_)
      return print_line({{"kind", "file_header"},
                         {"offset", 0},
                         {"max_file_size", +header.max_file_size},
                         {"max_single_log_size", +header.max_single_log_size},
                         {"modify_block_size", +header.modify_block_size},
                         {"last_log_offset", +header.last_log_offset},
                         {"file_size", +header.file_size},
                         {"class_last_log", classes},
                         {"file_flags", +header.file_flags}});
    const auto units = [](uint16_t count) {
      return std::to_string(count) + " (" + grouped(count * uint64_t{XLOG_SIZE_UNIT}) + " bytes)";
    };
    print(paint("offset 0: file header, 1040 bytes\n", Colour::bold) +
          field_line("max_file_size", units(header.max_file_size)) +
          field_line("max_single_log_size", units(header.max_single_log_size)) +
          field_line("modify_block_size", std::to_string(header.modify_block_size)) +
          field_line("last_log_offset", link_text(header.last_log_offset)) +
          field_line("file_size", std::to_string(header.file_size)) + lines +
          field_line("file_flags", hex(header.file_flags, 4)));
  }

  void log(uint32_t offset, uint32_t end) {
    const LoadedLog loaded = load_log(file_, offset, end);
    const xlog_log_info& info = loaded.info;
    const std::string_view name(info.event_name, XLOG_NAME_SIZE);
    const Stamp stamp{info.timestamp.seconds, info.timestamp.hundredths};
    Json blocks = Json::array();
    std::string lines;
    uint64_t data = offset + loaded.header_size();
    for (uint32_t i = 0; i < info.num_blocks; ++i) {
      const xlog_block_info entry = load_block_info(file_, offset, i);
      const uint64_t shown = std::min<uint64_t>({entry.block_size, bytes_, data < end ? end - data : 0});
      const Bytes first = shown == 0 ? Bytes{} : file_.subspan(data, shown);
      if (json_)
        blocks.push_back({{"id", entry.block_id},
                          {"name", block_name(entry.block_id)},
                          {"size", +entry.block_size},
                          {"offset", data},
                          {"first_bytes", hex_bytes(first)}});
      else
        lines += field_line("block " + std::to_string(i + 1),
                            hex(entry.block_id, 2) + " " + pad(block_name(entry.block_id), 16) + " " +
                                std::to_string(entry.block_size) + " bytes at " + std::to_string(data) + ": " +
                                hex_bytes(first) + (shown < entry.block_size ? "..." : ""));
      data += entry.block_size;
    }
    if (json_)
      return print_line({{"kind", "log"},
                         {"offset", offset},
                         {"total_log_size", +info.total_log_size},
                         {"class", info.eventid.classes},
                         {"type", info.eventid.log_type},
                         {"user", +info.eventid.user},
                         {"seconds", stamp.seconds},
                         {"hundredths", stamp.hundredths},
                         {"event_name", std::string(name.substr(0, name.find('\0')))},
                         {"event_name_hex", hex_bytes({file_.data() + offset + 13, XLOG_NAME_SIZE})},
                         {"log_flags", +info.log_flags},
                         {"prev_log_offset", +info.prev_log_offset},
                         {"prev_class_log_offset", +info.prev_class_log_offset},
                         {"blocks", blocks}});
    print(paint("offset " + std::to_string(offset) + ": log, " + std::to_string(info.total_log_size) + " bytes\n",
                Colour::bold) +
          field_line("eventid", "class " + hex(info.eventid.classes, 2) + " type " + hex(info.eventid.log_type, 2) +
                                    " user " + hex(info.eventid.user, 4)) +
          field_line("timestamp", "@" + std::to_string(stamp.seconds) + "." + std::to_string(stamp.hundredths / 10) +
                                      std::to_string(stamp.hundredths % 10) + "  " + table_time(stamp, utc_)) +
          field_line("event_name", "\"" + escape(name) + "\"") +
          field_line("log_flags", hex(info.log_flags, 4) + (info.log_flags == XLOG_LOG_DELETED ? " (deleted)" : "")) +
          field_line("prev_log_offset", link_text(info.prev_log_offset)) +
          field_line("prev_class_log_offset", link_text(info.prev_class_log_offset)) +
          field_line("num_blocks", std::to_string(info.num_blocks)) + lines);
  }

  void print_gap(const Gap& gap) { rest(gap.begin, gap.end, reason(gap.flaw), true); }

  void rest(uint64_t begin, uint64_t end, const std::string& why, bool damaged = false) {
    const Bytes first = file_.subspan(begin, std::min<uint64_t>(bytes_, end - begin));
    if (json_)
      return print_line({{"kind", damaged ? "unreadable" : "rest"},
                         {"offset", begin},
                         {"size", end - begin},
                         {"why", why},
                         {"first_bytes", hex_bytes(first)}});
    print(paint("offset " + std::to_string(begin) + ": " + std::to_string(end - begin) + " bytes, " + why + "\n",
                damaged ? Colour::red : Colour::bold) +
          field_line("first bytes", hex_bytes(first)));
  }

  Bytes file_;
  uint32_t bytes_;
  bool json_;
  bool utc_;
};

void dump(const Options& options, Session& session) {
  const std::string path = options.file.empty() ? existing_log(options.target).path : given_path(options.file);
  std::vector<uint8_t> bytes;
  {
    const LogLock lock(!options.no_lock);
    bytes = read_whole_file(path);
  }
  start_pager();
  Dump(bytes, options, session).run(session.result);
}

}  // namespace

void add_dump(CLI::App& app, Session& session) {
  auto options = std::make_shared<Options>();
  CLI::App* verb = app.add_subcommand("dump", "Print the structure of a log file, offset by offset");
  CLI::Option* file = verb->add_option("FILE", options->file, "A log file by its path; none: the log that --file names")
                          ->check(not_empty);
  verb->add_option("--file", options->target, "A log by its name: log (the main log), e4, !wexocom0.log, ...")
      ->type_name("LOG")
      ->excludes(file);
  add_number(*verb, "--bytes", options->bytes, "How many bytes of each block are shown")
      ->default_str(std::to_string(kFirstBytes));
  verb->add_flag("--no-lock", options->no_lock, "Do not take the log lock while reading");
  add_json(*verb, session);
  add_utc(*verb, session);
  add_colour(*verb, session);
  verb->callback([options, &session] { dump(*options, session); });
}

}  // namespace plov::ctl
