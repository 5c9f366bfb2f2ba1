#include "platform/host/bridge/signature.h"

#include <string.h>

namespace plov::bridge {
namespace {

void copy_slashed(const char* from, size_t length, char* to) {
  for (size_t i = 0; i < length; ++i) to[i] = from[i] == '.' ? '/' : from[i];
}

}  // namespace

size_t type_length(const char* text) {
  const size_t dimensions = strspn(text, "[");
  const char* element = text + dimensions;
  if (*element == '\0' || dimensions > 255) return 0;
  if (strchr("ZBCSIJFD", *element)) return dimensions + 1;
  if (*element != 'L') return 0;
  const size_t name = strcspn(element + 1, ";[(");
  return name > 0 && element[1 + name] == ';' ? dimensions + name + 2 : 0;
}

bool parse(const char* text, Signature* signature) {
  signature->descriptor[0] = '(';
  size_t used = 1;
  signature->count = 0;
  while (*text) {
    const size_t length = type_length(text);
    // Behind the arguments there is room for ")" and a result's type.
    if (length == 0 || signature->count == kMaxArguments || used + length + kNameSize + 8 > kDescriptorSize)
      return false;
    signature->starts[signature->count++] = used;
    copy_slashed(text, length, signature->descriptor + used);
    used += length;
    text += length;
  }
  signature->starts[signature->count] = used;
  memcpy(signature->descriptor + used, ")", 2);
  signature->length = used + 1;
  return true;
}

bool slashed(const char* name, size_t length, char (&to)[kNameSize]) {
  if (length >= kNameSize) return false;
  copy_slashed(name, length, to);
  to[length] = '\0';
  return true;
}

bool class_of_type(const char* type, size_t length, char (&to)[kNameSize]) {
  return *type == 'L' ? slashed(type + 1, length - 2, to) : slashed(type, length, to);
}

}  // namespace plov::bridge
