#include "crash_report.h"

#include <cxxabi.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "blocks.h"
#include "escape.h"
#include "xlog_format.h"

namespace plov::ctl {
namespace {

std::string_view view(Bytes bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::vector<std::string_view> split(std::string_view text, char end) {
  std::vector<std::string_view> parts;
  while (!text.empty()) {
    const size_t length = std::min(text.find(end), text.size());
    if (length > 0) parts.push_back(text.substr(0, length));
    text.remove_prefix(std::min(length + 1, text.size()));
  }
  return parts;
}

// What stands between `before` and `after` in a line that begins with the one and holds the other last.
std::optional<std::string> between(std::string_view line, std::string_view before, std::string_view after) {
  if (!line.starts_with(before)) return std::nullopt;
  const size_t end = after.empty() ? line.size() : line.rfind(after);
  if (end == std::string_view::npos || end < before.size()) return std::nullopt;
  return std::string(line.substr(before.size(), end - before.size()));
}

bool is_hex(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

// "EDI:00000001 ESI:00000010": names of registers and nothing else.
bool read_registers(std::string_view line, CrashReport& report) {
  std::vector<std::pair<std::string, std::string>> found;
  for (const std::string_view token : split(line, ' ')) {
    const size_t colon = std::min(token.find(':'), token.size());
    const std::string_view name = token.substr(0, colon), value = token.substr(std::min(colon + 1, token.size()));
    if (name.empty() ||
        !std::all_of(name.begin(), name.end(), [](unsigned char c) { return isupper(c) || isdigit(c); }))
      return false;
    if (!is_hex(value)) return false;
    found.emplace_back(name, value);
  }
  report.registers.insert(report.registers.end(), found.begin(), found.end());
  return !found.empty();
}

// "1.At 0xffffcde0 is Ebp/Eip pair: ffffce08/56556233."
bool read_frame(std::string_view line, CrashReport& report) {
  const size_t at = line.find(".At "), is = line.find(" is "), pair = line.find(" pair: ");
  if (at == std::string_view::npos || is == std::string_view::npos || pair == std::string_view::npos || pair < is ||
      is < at || line.substr(0, at).find_first_not_of("0123456789") != std::string_view::npos)
    return false;
  std::string_view words = line.substr(pair + 7);
  if (words.ends_with('.')) words.remove_suffix(1);
  const size_t slash = std::min(words.find('/'), words.size());
  report.frames.push_back({std::string(line.substr(at + 4, is - at - 4)), std::string(words.substr(0, slash)),
                           std::string(words.substr(std::min(slash + 1, words.size()))), ""});
  return true;
}

bool read_ids(std::string_view line, CrashReport& report) {
  if (!line.starts_with("PPID=")) return false;
  for (const std::string_view token : split(line, ' ')) {
    const size_t equals = std::min(token.find('='), token.size());
    const std::string value(token.substr(std::min(equals + 1, token.size())));
    const auto number = static_cast<uint32_t>(strtoul(value.c_str(), nullptr, 16));
    if (token.starts_with("PPID="))
      report.parent_pid = number;
    else if (token.starts_with("PID="))
      report.pid = number;
    else if (token.starts_with("TIB="))
      report.thread = value;
  }
  return true;
}

bool read_line(std::string_view line, CrashReport& report) {
  const auto take = [&](std::string& field, std::string_view before, std::string_view after = "") {
    const std::optional<std::string> text = between(line, before, after);
    if (text) field = *text;
    return text.has_value();
  };
  std::string ignored;
  if (take(ignored, "Exception Number: ") || take(report.program, "Program name is >", "<") ||
      take(report.address, "Address of invalid memory access is ") || take(report.stack, "Stack: "))
    return true;
  // The description, of many wordings, is the line behind the tag.
  if (take(report.tag, "User Thread tag: >", "<")) return true;
  if (read_ids(line, report) || read_registers(line, report) || read_frame(line, report)) return true;
  if (!report.frames.empty() && line.starts_with("  Stk:")) {
    if (line.find("No stack data") == std::string_view::npos)
      report.frames.back().bytes = line.substr(std::min(line.find_first_not_of(' ', 6), line.size()));
    return true;
  }
  return false;
}

std::string demangled(const std::string& name) {
  int status = 0;
  const std::unique_ptr<char, decltype(&free)> text(abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status), free);
  return status == 0 && text ? text.get() : name;
}

}  // namespace

void read_report_text(std::string_view text, CrashReport& report) {
  bool behind_tag = false;
  for (const std::string_view line : split(text, '\0')) {
    const bool tag = line.starts_with("User Thread tag: >");
    if (behind_tag)
      report.description = line;
    else if (!read_line(line, report))
      report.others.emplace_back(line);
    behind_tag = tag;
  }
}

// "module(name+0x1a)[0x565561f9]", with or without a name and a blank.
CallSite read_call_site(std::string_view line) {
  const size_t open = line.find('('), close = line.rfind(')'), bracket = line.rfind('[');
  if (bracket == std::string_view::npos || !line.ends_with(']')) return {std::string(line), "", ""};
  CallSite site;
  site.address = line.substr(bracket + 1, line.size() - bracket - 2);
  site.module = line.substr(0, std::min(open, bracket));
  while (site.module.ends_with(' ')) site.module.pop_back();
  if (open == std::string_view::npos || close == std::string_view::npos || close < open) return site;
  const std::string_view inside = line.substr(open + 1, close - open - 1);
  const size_t plus = std::min(inside.rfind('+'), inside.size());
  if (plus > 0)
    site.function = demangled(std::string(inside.substr(0, plus))) + std::string(inside.substr(plus));
  else
    site.module += inside;  // no name: the offset is the module's
  return site;
}

const CallSite* CrashReport::fault() const {
  std::string pointer;
  for (const auto& [name, value] : registers)
    if (name == "EIP" || name == "RIP") pointer = value;
  if (pointer.empty()) return nullptr;
  const uint64_t wanted = strtoull(pointer.c_str(), nullptr, 16);
  const auto found = std::find_if(backtrace.begin(), backtrace.end(), [&](const CallSite& site) {
    return strtoull(site.address.c_str(), nullptr, 16) == wanted;
  });
  return found == backtrace.end() ? nullptr : &*found;
}

std::optional<CrashReport> crash_report_of(const Event& event) {
  if (event.id.classes != kCrashClass || event.id.log_type != kCrashType ||
      trim_field(event.name.data(), event.name.size()) != kCrashName)
    return std::nullopt;
  CrashReport report;
  bool process_trace = false;
  for (const Block& block : event.blocks) {
    const std::string_view text = view(block.data);
    if (block.id == XLOG_ERROR_BLOCK_ID && text.size() == sizeof(xlog_error_block)) {
      xlog_error_block error;
      memcpy(&error, text.data(), sizeof error);
      report.report_id = error.error_id;
      report.signal = error.error_reason;
    } else if (block.id == XLOG_LOG_INFO_BLOCK_ID) {
      read_report_text(text, report);
    } else if (block.id == XLOG_BACKTRACE_BLOCK_ID) {
      for (const std::string_view line : split(text, '\n')) report.backtrace.push_back(read_call_site(line));
    } else if (block.id == XLOG_PROCESS_TRACE_BLOCK_ID || (block.id == XLOG_THREAD_TRACE_BLOCK_ID && !process_trace)) {
      process_trace = block.id == XLOG_PROCESS_TRACE_BLOCK_ID;
      report.trace.clear();
      for (const std::string_view line : split(text, '\n')) report.trace.emplace_back(line);
    }
  }
  return report;
}

std::string signal_name(uint32_t signal) {
  const char* const name = signal < NSIG ? sigabbrev_np(static_cast<int>(signal)) : nullptr;
  return name ? std::string("SIG") + name : "signal " + std::to_string(signal);
}

const char* crashed_process_type(uint16_t report_id) {
  switch (report_id) {
    case 0x40A:
      return "temporary process";
    case 0x40C:
      return "permanent process";
    case 0x400:
      return "problem-analysis process";
    case 0x40E:
      return "process without asynchronous termination";
    default:
      return "";
  }
}

}  // namespace plov::ctl
