// Arrays, and the bytes of byte arrays.
#include <limits.h>
#include <string.h>

#include "platform/host/bridge/scope.h"
#include "platform/host/bridge/signature.h"

using namespace plov::bridge;

namespace {

int32_t make_array(const Scope& scope, const char* type, jsize length, jobject* array) {
  JNIEnv* const env = scope.env();
  switch (*type) {
    case 'Z':
      *array = env->NewBooleanArray(length);
      break;
    case 'B':
      *array = env->NewByteArray(length);
      break;
    case 'C':
      *array = env->NewCharArray(length);
      break;
    case 'S':
      *array = env->NewShortArray(length);
      break;
    case 'I':
      *array = env->NewIntArray(length);
      break;
    case 'J':
      *array = env->NewLongArray(length);
      break;
    case 'F':
      *array = env->NewFloatArray(length);
      break;
    case 'D':
      *array = env->NewDoubleArray(length);
      break;
    default: {
      char name[kNameSize];
      if (!class_of_type(type, strlen(type), name)) return fail(XNB_BAD_ARGUMENT, "the type's name is too long");
      jclass element = nullptr;
      if (const int32_t status = scope.find_class(name, &element)) return status;
      *array = env->NewObjectArray(length, element, nullptr);
    }
  }
  return check(env, XNB_EXCEPTION);
}

// The byte array behind `array` when the range can be one of Java's.
int32_t byte_range(const Scope& scope, xnb_object array, uint32_t start, uint32_t count, const void* bytes,
                   jobject* object) {
  if (scope.status() != XNB_OK) return scope.status();
  if ((!bytes && count > 0) || start > INT_MAX || count > INT_MAX)
    return fail(XNB_BAD_ARGUMENT, "no bytes, or %u of them from %u", count, start);
  return scope.need(array, "[B", object);
}

}  // namespace

int32_t xnbCreateArrayI(const char* type, uint32_t length, xnb_object* array) {
  const Scope scope;
  if (array) *array = nullptr;
  if (scope.status() != XNB_OK) return scope.status();
  const size_t one_type = type ? type_length(type) : 0;
  if (!array || one_type == 0 || type[one_type] != '\0' || length > INT_MAX)
    return fail(XNB_BAD_ARGUMENT, "no array of %u elements of type %s", length, type ? type : "(null)");
  jobject made = nullptr;
  if (const int32_t status = make_array(scope, type, static_cast<jsize>(length), &made)) return status;
  return scope.hand_out(made, array);
}

int32_t xnbGetArrayLength(xnb_object array, uint32_t* length) {
  const Scope scope;
  if (scope.status() != XNB_OK) return scope.status();
  if (!length) return fail(XNB_BAD_ARGUMENT, "no place for the length");
  jobject object = nullptr;
  if (const int32_t status = scope.need(array, &object)) return status;
  JNIEnv* const env = scope.env();
  const jclass type = env->GetObjectClass(object);
  const jmethodID is_array = env->GetMethodID(env->GetObjectClass(type), "isArray", "()Z");
  const bool good = is_array && env->CallBooleanMethod(type, is_array);
  if (const int32_t status = check(env, XNB_EXCEPTION)) return status;
  if (!good) return fail(XNB_BAD_REFERENCE, "the object is no array");
  *length = static_cast<uint32_t>(env->GetArrayLength(static_cast<jarray>(object)));
  return XNB_OK;
}

int32_t xnbGetByteArrayElements(xnb_object array, uint32_t start, uint32_t count, void* bytes) {
  const Scope scope;
  jobject object = nullptr;
  if (const int32_t status = byte_range(scope, array, start, count, bytes, &object)) return status;
  scope.env()->GetByteArrayRegion(static_cast<jbyteArray>(object), static_cast<jsize>(start), static_cast<jsize>(count),
                                  static_cast<jbyte*>(bytes));
  return check(scope.env(), XNB_EXCEPTION);
}

int32_t xnbSetByteArrayElements(xnb_object array, uint32_t start, uint32_t count, const void* bytes) {
  const Scope scope;
  jobject object = nullptr;
  if (const int32_t status = byte_range(scope, array, start, count, bytes, &object)) return status;
  scope.env()->SetByteArrayRegion(static_cast<jbyteArray>(object), static_cast<jsize>(start), static_cast<jsize>(count),
                                  static_cast<const jbyte*>(bytes));
  return check(scope.env(), XNB_EXCEPTION);
}
