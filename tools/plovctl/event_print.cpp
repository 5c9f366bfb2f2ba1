#include "event_print.h"

#include <algorithm>

#include "blocks.h"
#include "crash_print.h"
#include "escape.h"
#include "output.h"

namespace plov::ctl {
namespace {

constexpr size_t kNameWidth = 12;
constexpr size_t kRecorderWidth = 20;
constexpr size_t kPreview = 40;

std::string_view text_of(Bytes data) {
  return {reinterpret_cast<const char*>(data.data()), data.size()};
}

std::string recorder_of(const Event& event) {
  for (const Block& block : event.blocks) {
    if (block.id != XLOG_STANDARD_BLOCK_ID) continue;
    if (const std::optional<Recorder> recorder = decode_standard_block(block.data))
      return escape(recorder->name) + "[" + std::to_string(recorder->process_id) + "]";
  }
  return "-";
}

// Of a microcode log or an error log.
std::optional<ReferenceCode> reference_code_of(const Event& event) {
  for (const Block& block : event.blocks)
    if (block.id == XLOG_ERROR_BLOCK_ID) return reference_code(event.id.classes, event.id.log_type, block.data);
  return std::nullopt;
}

// What crashed, the reference code, or the beginning of the first block that is readable text as a whole.
std::string preview(const Event& event) {
  if (const std::optional<CrashReport> crash = crash_report_of(event)) return " " + escape(crash_summary(*crash));
  if (const auto code = reference_code_of(event)) return " refcode " + code->code + " ext " + code->extension;
  for (const Block& block : event.blocks) {
    const std::string_view text = trim_field(text_of(block.data).data(), block.data.size());
    if (text.size() < 4 || text.size() > 4096 || escape(text.substr(0, 1)) != text.substr(0, 1) || !is_utf8(text))
      continue;
    std::string shown = escape(text.substr(0, text.find('\n')));
    if (shown.find("\\x") != std::string::npos) continue;
    // Cut between characters, never within one.
    if (shown.size() > kPreview) {
      size_t cut = kPreview;
      while (cut > 0 && (static_cast<unsigned char>(shown[cut]) & 0xC0) == 0x80) --cut;
      shown = shown.substr(0, cut) + "...";
    }
    return " \"" + shown + "\"";
  }
  return "";
}

std::string blocks_of(const Event& event) {
  std::string text;
  for (const Block& block : event.blocks)
    text += (text.empty() ? "" : " ") + hex(block.id, 2).substr(2) + ":" + std::to_string(block.data.size());
  return text;
}

void print_line_of(const Event& event, const Session& session) {
  const bool error = event.flags & XLOG_LOG_DISPLAY_AS_ERROR;
  std::string flags;
  flags += error ? 'E' : '-';
  flags += event.flags & XLOG_LOG_PROBLEM_ANALYSIS ? 'A' : '-';
  const std::string name = escape(trim_field(event.name.data(), event.name.size()));
  print(paint(table_time(event.stamp, session.utc), Colour::dim) + "  " + hex(event.id.classes, 2) + "  " +
        hex(event.id.log_type, 2) + "  " + hex(event.id.user, 4) + "  " +
        paint(pad(name, kNameWidth), error ? Colour::red : Colour::bold) + "  " + flags + "  " +
        pad(recorder_of(event), kRecorderWidth) + "  " + blocks_of(event) + paint(preview(event), Colour::cyan) + "\n");
}

void print_text(std::string_view text) {
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    print("    " + escape(text.substr(0, end)) + "\n");
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

void print_blocks(const Event& event) {
  for (const Block& block : event.blocks) {
    const char* name = block_name(block.id);
    print("  block " + hex(block.id, 2) + (*name ? std::string(" ") + name : "") + ", " +
          std::to_string(block.data.size()) + " bytes\n");
    for (const Field& field : decode_block(block.id, block.data)) {
      std::string words = field.name;
      std::replace(words.begin(), words.end(), '_', ' ');
      print("    " + paint(words + ": " + escape(field.text), Colour::cyan) + "\n");
    }
    if (const auto text = block_text(block.id, block.data))
      print_text(*text);
    else
      print(hexdump(block.data, "    "));
  }
}

void print_json(const Event& event, const Session& session, bool hexadecimal) {
  const std::string_view name = trim_field(event.name.data(), event.name.size());
  Json line = {{"seconds", event.stamp.seconds},
               {"hundredths", event.stamp.hundredths},
               {"time", rfc3339(event.stamp, session.utc)},
               {"class", event.id.classes},
               {"type", event.id.log_type},
               {"user", +event.id.user},
               {"name", std::string(name)},
               {"error", (event.flags & XLOG_LOG_DISPLAY_AS_ERROR) != 0},
               {"analysis", (event.flags & XLOG_LOG_PROBLEM_ANALYSIS) != 0}};
  // Where the text above had to be replaced, the bytes are not lost.
  if (!is_utf8(name)) line["name_base64"] = base64({reinterpret_cast<const uint8_t*>(name.data()), name.size()});
  if (const auto code = reference_code_of(event)) {
    line["reference_code"] = code->code;
    line["extension"] = code->extension;
  }
  Json blocks = Json::array();
  for (const Block& block : event.blocks) {
    Json entry = {{"id", block.id},
                  {"id_name", block_name(block.id)},
                  {"size", block.data.size()},
                  {"base64", base64(block.data)},
                  {"decoded", Json::object()}};
    if (hexadecimal) entry["hex"] = hex_bytes(block.data);
    for (const Field& field : decode_block(block.id, block.data))
      entry["decoded"][field.name] = field.number ? Json(*field.number) : Json(field.text);
    if (const auto text = block_text(block.id, block.data)) entry["decoded"]["text"] = *text;
    blocks.push_back(std::move(entry));
  }
  line["blocks"] = std::move(blocks);
  if (const std::optional<CrashReport> crash = crash_report_of(event)) line["crash"] = crash_json(*crash);
  print_line(line);
}

}  // namespace

void print_table_head() {
  print(paint(pad("TIME", 22) + "  CLASS TYPE  USER    " + pad("NAME", kNameWidth) + "  EA  " +
                  pad("RECORDED BY", kRecorderWidth) + "  BLOCKS id:bytes",
              Colour::dim) +
        "\n");
}

void print_crash_event(const Event& event, const Session& session, bool hexdump) {
  if (const std::optional<CrashReport> crash = crash_report_of(event))
    print_crash(*crash, table_time(event.stamp, session.utc));
  if (hexdump) print_blocks(event);
}

void print_event(const Event& event, const Session& session, bool hexdump) {
  if (session.json) return print_json(event, session, hexdump);
  print_line_of(event, session);
  if (hexdump) print_blocks(event);
}

}  // namespace plov::ctl
