// Lines of the trace, taken apart and selected.
#ifndef PLOV_CTL_TRACE_FILTER_H
#define PLOV_CTL_TRACE_FILTER_H

#include <string>
#include <string_view>
#include <vector>

namespace plov::ctl {

// The tag of a line, without the filling between its letters and its level: "XLOG   F: log_file" has "XLOG" and 'F'.
struct TraceTag {
  std::string name;  // "" when the line has none
  char level = 0;    // T entry and exit, D detail, F detail and failure
  size_t position = 0;
};
TraceTag find_tag(std::string_view line);

struct TraceFilter {
  std::string tag;     // the tag begins with this, in any case
  std::string levels;  // one of these letters
  std::string grep;
  bool matches(std::string_view line) const;
};

std::vector<std::string_view> split_lines(std::string_view text);

// The index of the first line that comes after `last` (the newest line seen before): 0 when it is not there any more.
size_t after_line(const std::vector<std::string_view>& lines, std::string_view last);

}  // namespace plov::ctl

#endif
