// What the bridge keeps for a thread until its end: that it attached it, and the strings that the thread gave names.
#ifndef PLOV_BRIDGE_THREAD_STATE_H
#define PLOV_BRIDGE_THREAD_STATE_H

#include <stddef.h>
#include <stdint.h>

#include <string_view>

namespace plov::bridge {

inline constexpr size_t kLongestName = 63;

struct NamedString {
  NamedString* next;
  size_t length;
  char name[kLongestName + 1];
  char text[1];  // `length` bytes
};

// The VM has attached the thread on our behalf: it is detached when it ends.
void detach_at_end();

int32_t set_named_string(const char* name, std::string_view text);

// The named string whose name stands at `candidate`, which may be any address; null when there is none.
const NamedString* find_named_string(const void* candidate);

void remove_named_string(const NamedString* string);

}  // namespace plov::bridge

#endif
