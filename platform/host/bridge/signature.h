// The argument types of a call, as the bridge's callers write them and as Java does.
#ifndef PLOV_BRIDGE_SIGNATURE_H
#define PLOV_BRIDGE_SIGNATURE_H

#include <stddef.h>

namespace plov::bridge {

inline constexpr size_t kMaxArguments = 32, kNameSize = 512, kDescriptorSize = 2048;

struct Signature {
  char descriptor[kDescriptorSize];  // "(Ljava/lang/String;I)"; the result's type is added behind it
  size_t length;                     // of the descriptor without a result
  size_t count;
  size_t starts[kMaxArguments + 1];  // of each argument in the descriptor, and of the ")"

  char kind(size_t i) const { return descriptor[starts[i]]; }
};

// False for what is no list of types.
bool parse(const char* text, Signature* signature);

// The length of the one type that stands at the beginning of `text`, 0 when there is none.
size_t type_length(const char* text);

// Copies a class's name with "/" in the place of "."; false when it does not fit.
bool slashed(const char* name, size_t length, char (&to)[kNameSize]);

// The name by which FindClass knows a class or array type: "Lname;" without its ends, all others as they are.
bool class_of_type(const char* type, size_t length, char (&to)[kNameSize]);

}  // namespace plov::bridge

#endif
