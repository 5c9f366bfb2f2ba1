#include "log/configuration.h"

#include "frame/memory.h"

namespace plov::log {
namespace {

constexpr unsigned kMaxDigits = 6;

class Parser {
 public:
  Parser(const char* text, size_t length) : at_(text), end_(text + length) {}

  bool more(ptrdiff_t count) const { return end_ - at_ >= count; }
  char peek() const { return at_ < end_ ? *at_ : '\n'; }
  bool at_line_end() const { return peek() == '\n' || peek() == '\r'; }
  void advance() { at_ < end_ ? ++at_ : at_; }
  void skip_blanks() {
    while (at_ < end_ && *at_ == ' ') ++at_;
  }
  void next_line() {
    while (at_ < end_ && *at_ != '\n') ++at_;
    advance();
  }

  // A number line's text runs up to the next blank, over a line feed if there is no blank before it; the number ends at
  // its first non-digit all the same, and the rest of the line in which the blank stands is free text.
  uint16_t number_line() {
    skip_blanks();
    const uint16_t value = digits(kMaxDigits);
    while (at_ < end_ && *at_ != ' ') ++at_;
    next_line();
    return value;
  }

  // The value of the digits here, kept in 16 bits; 0 when there is none.
  uint16_t digits(unsigned limit) {
    uint32_t value = 0;
    for (unsigned i = 0; i < limit && peek() >= '0' && peek() <= '9'; ++i, advance())
      value = value * 10 + static_cast<uint32_t>(peek() - '0');
    return static_cast<uint16_t>(value);
  }

  bool number(uint16_t* value) {
    if (peek() < '0' || peek() > '9') return false;
    *value = digits(UINT32_MAX);
    return true;
  }

  bool hex_byte(uint16_t* value) {
    if (!more(2) || !is_hex(at_[0]) || !is_hex(at_[1])) return false;
    *value = xlog_atoh(at_);
    at_ += 2;
    return true;
  }

 private:
  static bool is_hex(char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'); }

  const char* at_;
  const char* end_;
};

template <class Record>
Record* make_record() {
  void* memory = PLOV_MALLOC(sizeof(Record));
  return memory ? new (memory) Record{} : nullptr;
}

// "blanks number [blanks number]": the keep count and the optional priority.
bool two_values(Parser& parser, uint16_t* first, uint16_t* second) {
  if (parser.peek() != ' ') return false;
  parser.skip_blanks();
  if (!parser.number(first)) return false;
  if (parser.peek() != ' ') return true;
  parser.skip_blanks();
  parser.number(second);
  return true;
}

uint16_t parse_classes(Parser& parser, uint16_t default_keep_count, xlog_class_record** list) {
  uint16_t failure = 0;
  xlog_class_record* current = nullptr;
  xlog_class_record** tail = list;
  for (; parser.more(2); parser.next_line()) {
    const char kind = parser.peek();
    if (kind == 'C') {
      parser.advance();
      parser.skip_blanks();
      uint16_t number;
      // A class line that is none ends the class before it: its type lines must not be counted for another class.
      current = nullptr;
      if (!parser.hex_byte(&number)) continue;
      if (!parser.at_line_end()) continue;
      current = make_record<xlog_class_record>();
      if (!current) {
        failure = XLOG_ERR_CONFIG_CLASS_MEMORY;
        continue;
      }
      current->classes = number;
      current->first = default_keep_count;
      *tail = current;
      tail = &current->next;
    } else if (kind == ' ' && current) {
      parser.skip_blanks();
      uint16_t type = 0, first = 0, second = 0;
      if (parser.peek() == '*') {
        parser.advance();
        if (!two_values(parser, &first, &second)) continue;
        current->first = first;
        current->second = second;
      } else if (parser.hex_byte(&type) && two_values(parser, &first, &second)) {
        auto* record = make_record<xlog_type_record>();
        if (!record) {
          failure = XLOG_ERR_CONFIG_TYPE_MEMORY;
          continue;
        }
        *record = {type, first, second, current->types};
        current->types = record;
      }
    }
  }
  return failure;
}

}  // namespace

uint16_t parse_configuration(const char* text, size_t length, bool want_classes, xlog_configuration* configuration) {
  *configuration = {};
  Parser parser(text, length);
  configuration->short_name_file_size = parser.number_line();
  configuration->main_file_size = parser.number_line();
  configuration->e4_file_size = parser.number_line();
  configuration->max_single_log_size = parser.number_line();
  configuration->modify_block_size = parser.number_line();
  configuration->default_keep_count = parser.number_line();
  configuration->compressed_copies = parser.number_line();
  if (!want_classes) return 0;
  return parse_classes(parser, configuration->default_keep_count, &configuration->class_list);
}

}  // namespace plov::log

uint8_t xlog_atoh(const char* digits) {
  const auto value = [](char c) { return c >= '0' && c <= '9' ? c - '0' : c - 55; };
  return static_cast<uint8_t>(value(digits[0]) * 16 + value(digits[1]));
}
