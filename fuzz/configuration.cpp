// Arbitrary bytes as "wexoinit.trm": nothing is read outside, and the class list is no longer than the class lines that
// the text has.
#include <algorithm>
#include <utility>

#include "fuzz/support.h"
#include "log/configuration.h"
#include "plovmemdebug.h"

namespace {

template <class Record>
Record* take(Record*& head) {
  Record* record = std::exchange(head, head->next);
  return record;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto copy = exact(data, size);
  const char* const text = reinterpret_cast<const char*>(copy.get());
  xlog_configuration with, without;
  plov::log::parse_configuration(text, size, false, &without);
  require(without.class_list == nullptr);
  require(plov::log::parse_configuration(text, size, true, &with) == 0);
  require(memcmp(&with, &without, offsetof(xlog_configuration, class_list)) == 0);

  auto lines = std::count(text, text + size, '\n') + 1;
  while (with.class_list) {
    xlog_class_record* record = take(with.class_list);
    require(--lines >= 0 && record->classes <= 0xFF);
    while (record->types) {
      xlog_type_record* type = take(record->types);
      require(--lines >= 0 && type->type <= 0xFF);
      plovmemdebug_free(type, __FILE__, __LINE__);
    }
    plovmemdebug_free(record, __FILE__, __LINE__);
  }
  return 0;
}
