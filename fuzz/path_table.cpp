// The path table: any text, any base directory. The parser and the walk must agree with the straightforward reading
// below, which keeps entries as strings and knows of no area until the end.
//
// Input: one byte of base length, one byte of area size (in units of 4, 255: the real size; small areas overflow soon),
// the base directory, the text.
#include "files/path_table.h"

#include <string>
#include <vector>

#include "fuzz/support.h"

namespace {

bool ends_line(char c) {
  return c == '\r' || c == '\n' || c == '\x1A';
}

std::string with_base(std::string directory, const std::string& base) {
  for (size_t at = 0; (at = directory.find('*', at)) != std::string::npos;) {
    directory.replace(at, directory[at + 1] == '/' ? 2 : 1, base);
    at += base.size() + 1;
    if (at > directory.size()) break;
  }
  return directory;
}

struct Table {
  std::string bytes;
  size_t last_length = 0;
};

Table read_by_line(const std::string& text, const std::string& base, size_t area_size) {
  Table table;
  bool full = false;
  const size_t size = text.size();
  size_t i = 0;
  while (true) {
    while (i < size && ends_line(text[i])) ++i;
    if (i == size) break;
    std::string pattern, directory;
    bool create = false;
    if (text[i] == '#') {
      while (i < size && !ends_line(text[i])) ++i;
      continue;
    }
    while (i < size && text[i] != ' ') pattern += text[i++];
    if (i++ == size) break;
    while (i < size && text[i] != ' ' && !ends_line(text[i])) directory += text[i++];
    for (; i < size && !ends_line(text[i]); ++i) create |= text[i] == 'C' || text[i] == 'c';
    directory = with_base(directory, base);

    const size_t length = pattern.size() + directory.size() + 6;
    full |= table.bytes.size() + length > area_size;
    if (!full) {
      table.bytes += static_cast<char>(length);
      table.bytes += std::string(1, '\0') + (create ? '\1' : '\0') + '\0';
      table.bytes += pattern + '\0' + directory + '\0';
    }
    table.last_length = length;
    if (length + 1 >= area_size) break;
  }
  table.bytes.resize(area_size);
  return table;
}

// What the walk must find, by offsets and strings.
std::vector<std::string> entries_of(const std::string& bytes) {
  std::vector<std::string> found;
  for (long at = 0, step = 1; step > 0 && at + 4 < static_cast<long>(bytes.size()) && bytes[at] != 0; at += step) {
    const size_t pattern_end = bytes.find('\0', at + 4);
    if (pattern_end == std::string::npos) break;
    const size_t directory_end = bytes.find('\0', pattern_end + 1);
    if (directory_end == std::string::npos) break;
    found.push_back(bytes.substr(at + 4, directory_end - at - 4) + ((bytes[at + 2] & 1) != 0 ? "+" : "-"));
    step = static_cast<signed char>(bytes[at]);
  }
  return found;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  const size_t base_length = data[0] < size - 2 ? data[0] : size - 2;
  const size_t area_size = data[1] == 255 ? 133120 : 4 * (data[1] + size_t{1});
  const std::string base(reinterpret_cast<const char*>(data) + 2, base_length);
  const std::string text(reinterpret_cast<const char*>(data) + 2 + base_length, size - 2 - base_length);

  // Exact sizes on the heap, so that one byte outside is found.
  const auto copy = exact(text.data(), text.size());
  std::vector<unsigned char> area(area_size, 0xEE);
  const size_t last_length =
      plov::files::parse_path_table({reinterpret_cast<const char*>(copy.get()), text.size()}, base, area);

  const Table expected = read_by_line(text, base, area_size);
  require(last_length == expected.last_length);
  require(memcmp(area.data(), expected.bytes.data(), area_size) == 0);

  std::vector<std::string> found;
  plov::files::TableEntry entry;
  for (plov::files::TableWalk walk(area); walk.next(entry);)
    found.push_back(std::string(entry.pattern) + '\0' + entry.directory + (entry.create_directory ? "+" : "-"));
  require(found == entries_of(expected.bytes));

  // The walk over bytes that no parser wrote.
  area.assign(data, data + size);
  for (plov::files::TableWalk walk(area); walk.next(entry);) require(strlen(entry.pattern) < size);
  return 0;
}
