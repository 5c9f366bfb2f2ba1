// Objects and the calls of their and their classes' methods.
#include <string.h>

#include "platform/host/bridge/method.h"
#include "platform/host/bridge/thread_state.h"

using namespace plov::bridge;

namespace {

int32_t find_class(const Scope& scope, const char* dotted, jclass* found) {
  char name[kNameSize];
  if (!dotted || !*dotted || !slashed(dotted, strlen(dotted), name))
    return fail(XNB_BAD_ARGUMENT, "no class name, or one that is too long");
  return scope.find_class(name, found);
}

// The class of a static call or the object of another one, the method and its arguments.
int32_t prepare_static(const Scope& scope, const char* class_name, const char* name, const char* signature,
                       va_list arguments, Method* method) {
  if (scope.status() != XNB_OK) return scope.status();
  if (const int32_t status = find_class(scope, class_name, &method->owner)) return status;
  return prepare(scope, name, signature, arguments, method);
}

int32_t prepare_instance(const Scope& scope, xnb_object reference, const char* name, const char* signature,
                         va_list arguments, jobject* object, Method* method) {
  if (scope.status() != XNB_OK) return scope.status();
  if (const int32_t status = scope.need(reference, object)) return status;
  method->owner = scope.env()->GetObjectClass(*object);
  return prepare(scope, name, signature, arguments, method);
}

// What an object call gave, unless Java threw.
int32_t finish(const Scope& scope, jobject given, xnb_object* result) {
  if (const int32_t status = check(scope.env(), XNB_EXCEPTION)) return status;
  return scope.hand_out(given, result);
}

int32_t no_place() {
  return fail(XNB_BAD_ARGUMENT, "no place for the result");
}

}  // namespace

int32_t xnbInstantiateObjectI(const char* class_name, const char* signature, xnb_object* object, ...) {
  const Scope scope;
  if (!object) return scope.status() != XNB_OK ? scope.status() : no_place();
  *object = nullptr;
  Method method(Kind::constructor, Result::none);
  va_list arguments;
  va_start(arguments, object);
  const int32_t status = prepare_static(scope, class_name, "<init>", signature, arguments, &method);
  va_end(arguments);
  if (status != XNB_OK) return status;
  return finish(scope, scope.env()->NewObjectA(method.owner, method.id, method.arguments), object);
}

int32_t xnbReleaseObjectReference(xnb_object object) {
  if (!object) return XNB_OK;
  const Scope scope(Scope::Message::keep);
  if (scope.status() != XNB_OK) return scope.status();
  if (const NamedString* const named = find_named_string(object)) {
    remove_named_string(named);
    return XNB_OK;
  }
  if (scope.env()->GetObjectRefType(static_cast<jobject>(object)) != JNIGlobalRefType)
    return fail(XNB_BAD_REFERENCE, "%p is no living reference and no string's name", object);
  scope.env()->DeleteGlobalRef(static_cast<jobject>(object));
  return XNB_OK;
}

int32_t xnbCallVoidMethod(const char* name, const char* signature, xnb_object object, ...) {
  const Scope scope;
  Method method(Kind::instance, Result::none);
  jobject receiver = nullptr;
  va_list arguments;
  va_start(arguments, object);
  const int32_t status = prepare_instance(scope, object, name, signature, arguments, &receiver, &method);
  va_end(arguments);
  if (status != XNB_OK) return status;
  scope.env()->CallVoidMethodA(receiver, method.id, method.arguments);
  return check(scope.env(), XNB_EXCEPTION);
}

int32_t xnbCallObjectMethodI(const char* name, const char* signature, xnb_object object, xnb_object* result, ...) {
  const Scope scope;
  if (!result) return scope.status() != XNB_OK ? scope.status() : no_place();
  *result = nullptr;
  Method method(Kind::instance, Result::object);
  jobject receiver = nullptr;
  va_list arguments;
  va_start(arguments, result);
  const int32_t status = prepare_instance(scope, object, name, signature, arguments, &receiver, &method);
  va_end(arguments);
  if (status != XNB_OK) return status;
  return finish(scope, scope.env()->CallObjectMethodA(receiver, method.id, method.arguments), result);
}

int32_t xnbCallStaticVoidMethod(const char* class_name, const char* name, const char* signature, ...) {
  const Scope scope;
  Method method(Kind::of_class, Result::none);
  va_list arguments;
  va_start(arguments, signature);
  const int32_t status = prepare_static(scope, class_name, name, signature, arguments, &method);
  va_end(arguments);
  if (status != XNB_OK) return status;
  scope.env()->CallStaticVoidMethodA(method.owner, method.id, method.arguments);
  return check(scope.env(), XNB_EXCEPTION);
}

int32_t xnbCallStaticIntMethod(const char* class_name, const char* name, const char* signature, int32_t* result, ...) {
  const Scope scope;
  if (!result) return scope.status() != XNB_OK ? scope.status() : no_place();
  Method method(Kind::of_class, Result::integer);
  va_list arguments;
  va_start(arguments, result);
  int32_t status = prepare_static(scope, class_name, name, signature, arguments, &method);
  va_end(arguments);
  if (status != XNB_OK) return status;
  const jint given = scope.env()->CallStaticIntMethodA(method.owner, method.id, method.arguments);
  status = check(scope.env(), XNB_EXCEPTION);
  if (status == XNB_OK) *result = given;
  return status;
}

int32_t xnbCallStaticObjectMethodI(const char* class_name, const char* name, const char* signature, xnb_object* result,
                                   ...) {
  const Scope scope;
  if (!result) return scope.status() != XNB_OK ? scope.status() : no_place();
  *result = nullptr;
  Method method(Kind::of_class, Result::object);
  va_list arguments;
  va_start(arguments, result);
  const int32_t status = prepare_static(scope, class_name, name, signature, arguments, &method);
  va_end(arguments);
  if (status != XNB_OK) return status;
  return finish(scope, scope.env()->CallStaticObjectMethodA(method.owner, method.id, method.arguments), result);
}
