#include "files/path_table.h"

#include <string.h>

#include <algorithm>

namespace plov::files {
namespace {

constexpr std::string_view kLineEnds = "\r\n\x1A";
constexpr std::string_view kDirectoryEnds = "\r\n\x1A ";
constexpr unsigned char kCreateDirectory = 0x01;
constexpr size_t kHead = 4;  // length, 0, flags, 0

// Writes an entry at the end of what the area holds. Bytes beyond the area are counted only.
class EntryWriter {
 public:
  EntryWriter(std::span<unsigned char> area, size_t start) : area_(area), start_(start) {}

  void put(unsigned char byte) {
    if (start_ + length_ < area_.size()) area_[start_ + length_] = byte;
    ++length_;
  }
  void put(std::string_view bytes) {
    for (char byte : bytes) put(static_cast<unsigned char>(byte));
  }

  // Gives the entry its length byte, modulo 256: longer entries break the walk, and the table's users keep theirs
  // short. An entry that passes the area is taken back. Returns the bytes that now stand in the area.
  size_t finish() {
    if (length_ <= area_.size() - start_) {
      area_[start_] = static_cast<unsigned char>(length_);
      return length_;
    }
    std::fill(area_.begin() + static_cast<ptrdiff_t>(start_), area_.end(), static_cast<unsigned char>(0));
    return 0;
  }
  size_t length() const { return length_; }

 private:
  std::span<unsigned char> area_;
  size_t start_;
  size_t length_ = 0;
};

// Each "*" becomes the base directory, which brings its own "/". The character behind an insertion is taken as it
// stands: "**" is the base and a "*".
void put_directory(EntryWriter& entry, std::string_view directory, std::string_view base) {
  for (size_t i = 0; i < directory.size(); ++i) {
    if (directory[i] != '*') {
      entry.put(static_cast<unsigned char>(directory[i]));
      continue;
    }
    entry.put(base);
    if (++i < directory.size() && directory[i] == '/') ++i;
    if (i < directory.size()) entry.put(static_cast<unsigned char>(directory[i]));
  }
}

// Cuts the text up to the first of `ends` off and returns it.
std::string_view take_until(std::string_view& text, std::string_view ends) {
  const std::string_view taken = text.substr(0, text.find_first_of(ends));
  text.remove_prefix(taken.size());
  return taken;
}

}  // namespace

size_t parse_path_table(std::string_view text, std::string_view base, std::span<unsigned char> area) {
  std::fill(area.begin(), area.end(), static_cast<unsigned char>(0));
  size_t used = 0, last_length = 0;
  bool full = false;
  while (true) {
    text.remove_prefix(std::min(text.find_first_not_of(kLineEnds), text.size()));
    if (text.empty()) break;
    if (text.front() == '#') {
      take_until(text, kLineEnds);
      continue;
    }
    // The blank is looked for beyond the line's end: a line without one runs into the next.
    const size_t blank = text.find(' ');
    if (blank == text.npos) break;
    const std::string_view pattern = text.substr(0, blank);
    text.remove_prefix(blank + 1);
    const std::string_view directory = take_until(text, kDirectoryEnds);
    const std::string_view options = take_until(text, kLineEnds);

    // Behind the first entry that did not fit, the others are only measured.
    EntryWriter entry(area, full ? area.size() : used);
    entry.put(0);
    entry.put(0);
    entry.put(options.find_first_of("Cc") != options.npos ? kCreateDirectory : 0);
    entry.put(0);
    entry.put(pattern);
    entry.put(0);
    put_directory(entry, directory, base);
    entry.put(0);
    last_length = entry.length();
    const size_t stored = entry.finish();
    full = stored == 0;
    used += stored;
    if (last_length + 1 >= area.size()) break;
  }
  return last_length;
}

bool TableWalk::next(TableEntry& entry) {
  if (rest_.size() <= kHead || rest_[0] == 0) return false;
  const auto* bytes = reinterpret_cast<const char*>(rest_.data());
  const char* const end = bytes + rest_.size();
  const char* const pattern = bytes + kHead;
  const auto* pattern_end = static_cast<const char*>(memchr(pattern, '\0', static_cast<size_t>(end - pattern)));
  if (!pattern_end) return false;
  const char* const directory = pattern_end + 1;
  if (!memchr(directory, '\0', static_cast<size_t>(end - directory))) return false;
  entry = {pattern, directory, (rest_[2] & kCreateDirectory) != 0};

  // The step is a signed byte; one that does not lead on ends the walk behind this entry.
  const auto step = static_cast<signed char>(rest_[0]);
  rest_ = step > 0 ? rest_.subspan(std::min(static_cast<size_t>(step), rest_.size())) : rest_.first(0);
  return true;
}

}  // namespace plov::files
