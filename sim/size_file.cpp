#include "sim/size_file.h"

namespace plov::sim {
namespace {

constexpr int64_t kLargestNumber = INT64_MAX / 16;  // any one above an int: enough to match nothing
constexpr int32_t kLongest = 65535;

// What scanf does, without its opinion of numbers that do not fit.
class Line {
 public:
  explicit Line(std::string_view text) : rest_(text) {}

  bool number(int64_t* value) {
    skip_blanks();
    bool negative = false;
    if (!rest_.empty() && (rest_[0] == '-' || rest_[0] == '+')) {
      negative = rest_[0] == '-';
      rest_.remove_prefix(1);
    }
    const size_t before = rest_.size();
    int64_t digits = 0;
    for (; !rest_.empty() && rest_[0] >= '0' && rest_[0] <= '9'; rest_.remove_prefix(1))
      if (digits < kLargestNumber) digits = digits * 10 + (rest_[0] - '0');
    *value = negative ? -digits : digits;
    return rest_.size() < before;
  }

  bool character() {
    skip_blanks();
    if (rest_.empty() || rest_[0] == '\0') return false;
    rest_.remove_prefix(1);
    return true;
  }

 private:
  void skip_blanks() {
    while (!rest_.empty() && (rest_[0] == ' ' || (rest_[0] >= '\t' && rest_[0] <= '\r'))) rest_.remove_prefix(1);
  }

  std::string_view rest_;
};

}  // namespace

int32_t listed_length(std::string_view text, int32_t id) {
  for (size_t end; (end = text.find('\n')) != std::string_view::npos; text.remove_prefix(end + 1)) {
    if (end <= 1 || text[0] == '#') continue;
    Line line(text.substr(0, end));
    int64_t listed, length;
    if (!line.number(&listed) || !line.character() || !line.number(&length) || listed != id) continue;
    return length >= 1 && length <= kLongest ? static_cast<int32_t>(length) : 0;
  }
  return 0;
}

}  // namespace plov::sim
