#include "trace_filter.h"

#include <strings.h>

#include <cctype>

namespace plov::ctl {
namespace {

constexpr size_t kTagSize = 8;

bool is_tag_letter(char c) {
  return isupper(static_cast<unsigned char>(c)) || isdigit(static_cast<unsigned char>(c)) || c == '_' || c == '*' ||
         c == ' ';
}

bool tag_at(std::string_view line, size_t at) {
  if (line.substr(at + kTagSize, 2) != ": " || !isupper(static_cast<unsigned char>(line[at]))) return false;
  for (char c : line.substr(at, kTagSize - 1))
    if (!is_tag_letter(c)) return false;
  return isupper(static_cast<unsigned char>(line[at + kTagSize - 1])) && (at == 0 || line[at - 1] == ' ');
}

}  // namespace

TraceTag find_tag(std::string_view line) {
  for (size_t at = 0; at + kTagSize + 2 <= line.size(); ++at) {
    if (!tag_at(line, at)) continue;
    std::string name(line.substr(at, kTagSize - 1));
    name.erase(name.find_last_not_of("_* ") + 1);
    return {std::move(name), line[at + kTagSize - 1], at};
  }
  return {};
}

bool TraceFilter::matches(std::string_view line) const {
  if (!grep.empty() && line.find(grep) == std::string_view::npos) return false;
  if (tag.empty() && levels.empty()) return true;
  const TraceTag found = find_tag(line);
  if (found.name.empty()) return false;
  return strncasecmp(found.name.c_str(), tag.c_str(), tag.size()) == 0 &&
         (levels.empty() || levels.find(found.level) != std::string::npos);
}

std::vector<std::string_view> split_lines(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const size_t end = text.find('\n');
    lines.push_back(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return lines;
}

size_t after_line(const std::vector<std::string_view>& lines, std::string_view last) {
  for (size_t i = lines.size(); i > 0; --i)
    if (lines[i - 1] == last) return i;
  return 0;
}

}  // namespace plov::ctl
