// Arbitrary bytes as "wexoinit.trm": nothing is read outside, and what comes out is what the straightforward reading
// below finds, which splits the text into lines and words first.
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/support.h"
#include "log/configuration.h"
#include "plovmemdebug.h"

namespace {

using Values = std::vector<uint16_t>;

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

uint16_t number(const std::string& digits, size_t limit = std::string::npos) {
  uint16_t value = 0;
  for (size_t i = 0; i < digits.size() && i < limit && is_digit(digits[i]); ++i)
    value = static_cast<uint16_t>(value * 10 + (digits[i] - '0'));
  return value;
}

// The word that begins at `*at` or behind the blanks there.
std::string next_word(const std::string& line, size_t* at) {
  const size_t start = std::min(line.find_first_not_of(' ', *at), line.size());
  *at = std::min(line.find(' ', start), line.size());
  return line.substr(start, *at - start);
}

bool hex_pair(const std::string& word) {
  return word.size() >= 2 && word.substr(0, 2).find_first_not_of("0123456789ABCDEF") == std::string::npos;
}

// A class gives its number, keep count and priority, then the type, keep count and priority of each of its types, the
// last one first.
std::vector<Values> classes_by_line(const std::string& text, uint16_t keep) {
  std::vector<Values> classes;
  bool open = false;
  for (size_t at = 0; at + 2 <= text.size(); at = std::min(text.find('\n', at), text.size() - 1) + 1) {
    const std::string line = text.substr(at, text.find('\n', at) - at);
    size_t place = 0;
    if (line[0] == 'C') {
      place = 1;
      const std::string pair = line.substr(std::min(line.find_first_not_of(' ', 1), line.size()));
      open = hex_pair(pair) && (pair.size() == 2 || pair[2] == '\r');
      if (open) classes.push_back({static_cast<uint16_t>(std::stoi(pair.substr(0, 2), nullptr, 16)), keep, 0});
    } else if (line[0] == ' ' && open) {
      const std::string what = next_word(line, &place), first = next_word(line, &place);
      // Digits with something else behind them are a number, but the last of the line.
      const bool whole = first.find_first_not_of("0123456789") == std::string::npos;
      const uint16_t second = whole ? number(next_word(line, &place)) : uint16_t{0};
      if (first.empty() || !is_digit(first[0])) continue;
      Values& values = classes.back();
      if (what == "*") {
        values[1] = number(first);
        values[2] = second;
      } else if (what.size() == 2 && hex_pair(what)) {
        const auto type = static_cast<uint16_t>(std::stoi(what, nullptr, 16));
        values.insert(values.begin() + 3, {type, number(first), second});
      }
    }
  }
  return classes;
}

Values take(xlog_class_record* record) {
  Values values = {record->classes, record->first, record->second};
  while (xlog_type_record* const type = record->types) {
    values.insert(values.end(), {type->type, type->first, type->second});
    record->types = type->next;
    plovmemdebug_free(type, __FILE__, __LINE__);
  }
  plovmemdebug_free(record, __FILE__, __LINE__);
  return values;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto copy = exact(data, size);
  const char* const bytes = reinterpret_cast<const char*>(copy.get());
  xlog_configuration with, without;
  plov::log::parse_configuration(bytes, size, false, &without);
  require(without.class_list == nullptr);
  require(plov::log::parse_configuration(bytes, size, true, &with) == 0);
  require(memcmp(&with, &without, offsetof(xlog_configuration, class_list)) == 0);

  const std::string text(bytes, size);
  size_t at = 0;
  for (const uint16_t parsed :
       {with.short_name_file_size, with.main_file_size, with.e4_file_size, with.max_single_log_size,
        with.modify_block_size, with.default_keep_count, with.compressed_copies}) {
    require(parsed == number(next_word(text, &at), 6));  // a word may go on in the next line
    at = std::min(text.find('\n', at), size - 1) + 1;
  }
  std::vector<Values> classes;
  while (xlog_class_record* const record = with.class_list) {
    with.class_list = record->next;
    classes.push_back(take(record));
  }
  require(classes == classes_by_line(text.substr(at), with.default_keep_count));
  return 0;
}
