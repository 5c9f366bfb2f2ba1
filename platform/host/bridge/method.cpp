#include "platform/host/bridge/method.h"

#include <string.h>

namespace plov::bridge {
namespace {

int32_t take_object(const Scope& scope, const Signature& signature, size_t i, xnb_object reference, jobject* object) {
  if (const int32_t status = scope.find(reference, object)) return status;
  if (!*object) return XNB_OK;
  // The VM itself does not look: an object of another class would damage it.
  char name[kNameSize];
  const size_t start = signature.starts[i];
  if (!class_of_type(signature.descriptor + start, signature.starts[i + 1] - start, name))
    return fail(XNB_BAD_ARGUMENT, "the name of argument %zu's class is too long", i + 1);
  jclass wanted = nullptr;
  if (const int32_t status = scope.find_class(name, &wanted)) return status;
  if (!scope.env()->IsInstanceOf(*object, wanted)) return fail(XNB_BAD_REFERENCE, "argument %zu is no %s", i + 1, name);
  return XNB_OK;
}

int32_t take_arguments(const Scope& scope, va_list arguments, Method* method) {
  for (size_t i = 0; i < method->signature.count; ++i) {
    jvalue& value = method->arguments[i];
    switch (method->signature.kind(i)) {
      case 'Z':
        value.z = va_arg(arguments, int) != 0;
        break;
      case 'B':
        value.b = static_cast<jbyte>(va_arg(arguments, int));
        break;
      case 'C':
        value.c = static_cast<jchar>(va_arg(arguments, int));
        break;
      case 'S':
        value.s = static_cast<jshort>(va_arg(arguments, int));
        break;
      case 'I':
        value.i = va_arg(arguments, int);
        break;
      case 'J':
        value.j = va_arg(arguments, int64_t);
        break;
      case 'F':
        value.f = static_cast<jfloat>(va_arg(arguments, double));
        break;
      case 'D':
        value.d = va_arg(arguments, double);
        break;
      default:
        if (const int32_t status = take_object(scope, method->signature, i, va_arg(arguments, xnb_object), &value.l))
          return status;
    }
  }
  return XNB_OK;
}

}  // namespace

int32_t prepare(const Scope& scope, const char* name, const char* signature, va_list arguments, Method* method) {
  if (!name || !*name || !signature || !parse(signature, &method->signature))
    return fail(XNB_BAD_ARGUMENT, "no method %s of the signature \"%s\"", name ? name : "(null)",
                signature ? signature : "(null)");
  JNIEnv* const env = scope.env();
  char* const descriptor = method->signature.descriptor;
  if (method->result == Result::object) {
    if (const int32_t status = add_object_result(scope, name, method)) return status;
  } else {
    strcpy(descriptor + method->signature.length, method->result == Result::none ? "V" : "I");
  }
  method->id = method->kind == Kind::of_class ? env->GetStaticMethodID(method->owner, name, descriptor)
                                              : env->GetMethodID(method->owner, name, descriptor);
  if (!method->id) {
    // Java's words are the name alone; a class whose initialisation fails here says so itself.
    const int32_t status = fail_with_exception(env, XNB_NO_METHOD);
    return strstr(xnbGetLastErrorMessage(), "NoSuchMethodError") ? fail(status, "no method %s%s", name, descriptor)
                                                                 : status;
  }
  return take_arguments(scope, arguments, method);
}

}  // namespace plov::bridge
