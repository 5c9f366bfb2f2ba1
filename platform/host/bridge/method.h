// Finding a method or constructor, its arguments, and calling it.
#ifndef PLOV_BRIDGE_METHOD_H
#define PLOV_BRIDGE_METHOD_H

#include <jni.h>
#include <stdarg.h>

#include "platform/host/bridge/scope.h"
#include "platform/host/bridge/signature.h"

namespace plov::bridge {

enum class Kind { constructor, instance, of_class };
enum class Result { none, integer, object };

// A call that can be made once prepare() has succeeded. The large members are filled by it alone.
struct Method {
  Method(Kind of, Result gives) : kind(of), result(gives) {}

  Kind kind;
  Result result;
  jclass owner = nullptr;
  jmethodID id = nullptr;
  Signature signature;
  jvalue arguments[kMaxArguments];
};

// With kind, result and owner set: finds the method `name` of these argument types and takes the arguments.
int32_t prepare(const Scope& scope, const char* name, const char* signature, va_list arguments, Method* method);

// Only the calls know that a method gives an object, not of which class: Java's reflection tells. Adds the type to the
// descriptor.
int32_t add_object_result(const Scope& scope, const char* name, Method* method);

}  // namespace plov::bridge

#endif
