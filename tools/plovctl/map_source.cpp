#include "map_source.h"

#include <algorithm>

#include "xsim_format.h"

namespace plov::ctl {
namespace {

constexpr int kHighestQuen = 32767;

int digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::optional<uint64_t> parse_number64(std::string_view text) {
  const int base = text.starts_with("0x") || text.starts_with("0X") ? 16 : 10;
  if (base == 16) text.remove_prefix(2);
  if (text.empty()) return {};
  uint64_t value = 0;
  for (char c : text) {
    const int d = digit(c);
    if (d < 0 || d >= base || value > (UINT64_MAX - static_cast<uint64_t>(d)) / static_cast<uint64_t>(base)) return {};
    value = value * static_cast<uint64_t>(base) + static_cast<uint64_t>(d);
  }
  return value;
}

std::optional<std::string> parse_quoted(std::string_view text) {
  std::string bytes;
  if (text.size() < 2 || text.back() != '"') return {};
  text = text.substr(1, text.size() - 2);
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '"') return {};
    if (text[i] != '\\') {
      bytes += text[i];
      continue;
    }
    if (++i == text.size()) return {};
    const char c = text[i];
    if (c == 'n' || c == 't') {
      bytes += c == 'n' ? '\n' : '\t';
    } else if (c == 'x' && i + 2 < text.size() && digit(text[i + 1]) >= 0 && digit(text[i + 2]) >= 0) {
      bytes += static_cast<char>(digit(text[i + 1]) * 16 + digit(text[i + 2]));
      i += 2;
    } else if (c == '"' || c == '\\') {
      bytes += c;
    } else {
      return {};
    }
  }
  return bytes;
}

std::optional<std::string> parse_pairs(std::string_view text) {
  std::string bytes;
  if (text.size() % 2 != 0) return {};
  for (size_t i = 0; i < text.size(); i += 2) {
    const int high = digit(text[i]), low = digit(text[i + 1]);
    if (high < 0 || low < 0) return {};
    bytes += static_cast<char>(high * 16 + low);
  }
  return bytes;
}

// Blanks around a line go, and so does a comment that is not inside a text.
std::string_view bare_line(std::string_view line) {
  bool quoted = false;
  for (size_t i = 0; i < line.size(); ++i) {
    if (quoted && line[i] == '\\')
      ++i;
    else if (line[i] == '"')
      quoted = !quoted;
    else if (line[i] == '#' && !quoted)
      line = line.substr(0, i);
  }
  const size_t first = line.find_first_not_of(" \t\r");
  if (first == std::string_view::npos) return {};
  return line.substr(first, line.find_last_not_of(" \t\r") - first + 1);
}

std::string_view next_word(std::string_view& line) {
  const size_t end = line.find_first_of(" \t");
  const std::string_view word = line.substr(0, end);
  line.remove_prefix(word.size());
  line.remove_prefix(std::min(line.size(), line.find_first_not_of(" \t")));
  return word;
}

template <class Record>
void append(std::string& bytes, const Record& record) {
  bytes.append(reinterpret_cast<const char*>(&record), sizeof record);
}

struct Pass {
  std::string records, permanent;
  std::map<int, int> line_of;  // by id
  uint32_t data_size = 0, permanent_values = 0;
};

class Builder {
 public:
  // False with `error` set.
  bool take(std::string_view line, int number);
  MapFiles files() const;
  std::string error;

 private:
  bool wrong(const std::string& what) {
    error = what;
    return false;
  }
  Pass passes_[2];
};

bool Builder::take(std::string_view line, int number) {
  const auto id = parse_number64(next_word(line)), size = parse_number64(next_word(line));
  const std::string_view place = next_word(line);
  if (!id || *id < 1 || *id > kHighestQuen) return wrong("the id is not a number from 1 to 32767");
  if (*id >= XSIM_FIRST_JAVA_ID && *id <= XSIM_LAST_JAVA_ID)
    return wrong("ids 1001 to 1999 are served by the Java side");
  // Readers take a record of size 0 for a byte less than it is.
  if (!size || *size < 1 || *size > INT16_MAX) return wrong("the size is not a number from 1 to 32767");
  xsim_data_record record = {static_cast<int16_t>(*id), static_cast<int16_t>(*size), 0};
  if (place == "data")
    record.type = XSIM_DATA;
  else if (place == "permanent" || place == "persistent")
    record.type = place == "permanent" ? XSIM_PERMANENT : XSIM_PERMANENT | XSIM_PERSISTENT;
  else if (place != "zero")
    return wrong("the value's place is none of data, permanent, persistent, zero");
  if (place == "zero" && !line.empty()) return wrong("a field of zeros has no value");
  const auto value = line.empty() ? std::string(*size, '\0') : parse_map_value(line, *size);
  if (!value) return wrong("the value is no number, \"text\" or hex:PAIRS of at most the field's size");

  Pass& pass = passes_[*id >= XSIM_FIRST_QUEN_ID ? XSIM_QUEN : XSIM_TOLVANE];
  if (const auto [before, fresh] = pass.line_of.emplace(static_cast<int>(*id), number); !fresh)
    return wrong("field " + std::to_string(*id) + " stands in line " + std::to_string(before->second) + " already");
  pass.data_size += static_cast<uint32_t>(*size);
  append(pass.records, record);
  if (record.type == XSIM_DATA) pass.records += *value;
  if ((record.type & XSIM_STORAGE_BITS) == XSIM_PERMANENT) {
    // No reader looks at the prefix; a person who looks at the file finds id and size there.
    append(pass.permanent, record.id);
    append(pass.permanent, record.size);
    pass.permanent += *value;
  }
  // Everything must fit into what a loader takes.
  const int highest = pass.line_of.rbegin()->first;
  const int count = highest + 1 - (&pass == passes_ ? 0 : XSIM_FIRST_QUEN_ID - 1);
  if (static_cast<size_t>(count) * sizeof(xsim_entry) + 16 > XSIM_FILE_LIMIT)
    return wrong("the id is larger than an array may have");
  if (pass.data_size + static_cast<uint32_t>(count) * 10 > XSIM_DATA_LIMIT ||
      pass.records.size() + sizeof(xsim_data_head) > XSIM_FILE_LIMIT ||
      pass.permanent.size() + XSIM_PERMANENT_START > XSIM_FILE_LIMIT)
    return wrong("the values are larger than a map may have");
  return true;
}

MapFiles Builder::files() const {
  static constexpr const char* kNames[2][2] = {{"ywkzsim.dat", "ywkzspr.dat"}, {"kvdzsim.dat", "kvdzspr.dat"}};
  MapFiles made;
  for (const int number : {XSIM_TOLVANE, XSIM_QUEN}) {
    const Pass& pass = passes_[number];
    if (pass.line_of.empty() && number == XSIM_QUEN) continue;  // the second array is optional
    xsim_data_head head = {0, 0, static_cast<uint16_t>(pass.data_size)};
    if (!pass.line_of.empty()) head.highest_id = static_cast<int16_t>(pass.line_of.rbegin()->first);
    std::string data;
    append(data, head);
    made.files[kNames[number][0]] = data + pass.records;
    made.files[kNames[number][1]] = std::string(XSIM_PERMANENT_START, '\0') + pass.permanent;
  }
  return made;
}

}  // namespace

std::optional<std::string> parse_map_value(std::string_view text, size_t size) {
  std::optional<std::string> value;
  if (text.starts_with('"')) {
    value = parse_quoted(text);
  } else if (text.starts_with("hex:")) {
    value = parse_pairs(text.substr(4));
  } else if (const auto number = parse_number64(text)) {
    value = std::string();
    for (uint64_t rest = *number; rest != 0; rest >>= 8) *value += static_cast<char>(rest);
  }
  if (!value || value->size() > size) return {};
  value->resize(size, '\0');
  return value;
}

MapFiles build_map(std::string_view source) {
  Builder builder;
  int number = 0;
  while (!source.empty()) {
    ++number;
    const std::string_view line = source.substr(0, source.find('\n'));
    source.remove_prefix(std::min(source.size(), line.size() + 1));
    if (const std::string_view bare = bare_line(line); !bare.empty() && !builder.take(bare, number))
      return {"line " + std::to_string(number) + ": " + builder.error, {}};
  }
  return builder.files();
}

}  // namespace plov::ctl
