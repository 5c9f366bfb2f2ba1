// The type of a method's result, which JNI wants to know beforehand.
#include <string.h>

#include "platform/host/bridge/method.h"

namespace plov::bridge {
namespace {

// The Class of one argument type: int.class and its like are fields of the classes that wrap them.
int32_t class_object(const Scope& scope, const char* type, size_t length, jobject* found) {
  JNIEnv* const env = scope.env();
  static constexpr struct {
    char kind;
    const char* wrapper;
  } kPrimitives[] = {{'Z', "java/lang/Boolean"}, {'B', "java/lang/Byte"},    {'C', "java/lang/Character"},
                     {'S', "java/lang/Short"},   {'I', "java/lang/Integer"}, {'J', "java/lang/Long"},
                     {'F', "java/lang/Float"},   {'D', "java/lang/Double"}};
  char name[kNameSize];
  jclass of_type = nullptr;
  for (const auto& primitive : kPrimitives) {
    if (*type != primitive.kind) continue;
    if (const int32_t status = scope.find_class(primitive.wrapper, &of_type)) return status;
    const jfieldID field = env->GetStaticFieldID(of_type, "TYPE", "Ljava/lang/Class;");
    if (field) *found = env->GetStaticObjectField(of_type, field);
    return check(env, XNB_NO_CLASS);
  }
  if (!class_of_type(type, length, name)) return fail(XNB_BAD_ARGUMENT, "the name of a class is too long");
  const int32_t status = scope.find_class(name, &of_type);
  *found = of_type;
  return status;
}

int32_t argument_classes(const Scope& scope, jclass class_class, const Signature& signature, jobjectArray* classes) {
  JNIEnv* const env = scope.env();
  *classes = env->NewObjectArray(static_cast<jsize>(signature.count), class_class, nullptr);
  if (const int32_t status = check(env, XNB_EXCEPTION)) return status;
  for (size_t i = 0; i < signature.count; ++i) {
    jobject of_type = nullptr;
    const size_t start = signature.starts[i];
    if (const int32_t status =
            class_object(scope, signature.descriptor + start, signature.starts[i + 1] - start, &of_type))
      return status;
    env->SetObjectArrayElement(*classes, static_cast<jsize>(i), of_type);
    env->DeleteLocalRef(of_type);
  }
  return XNB_OK;
}

// The public ones first, inherited ones and those of interfaces with them; then the others, class by class. Null leaves
// what Java said of the first as the message.
jobject find_method(JNIEnv* env, jclass owner, jclass class_class, jstring name, jobjectArray classes) {
  constexpr const char* kLookup = "(Ljava/lang/String;[Ljava/lang/Class;)Ljava/lang/reflect/Method;";
  const jmethodID any_public = env->GetMethodID(class_class, "getMethod", kLookup);
  const jmethodID declared = env->GetMethodID(class_class, "getDeclaredMethod", kLookup);
  jobject method = env->CallObjectMethod(owner, any_public, name, classes);
  if (check(env, XNB_NO_METHOD) == XNB_OK) return method;
  for (jclass holder = owner; holder; holder = env->GetSuperclass(holder)) {
    method = env->CallObjectMethod(holder, declared, name, classes);
    if (!env->ExceptionCheck()) return method;
    env->ExceptionClear();
  }
  return nullptr;
}

// What a method of `object` without arguments gives.
int32_t ask(JNIEnv* env, jobject object, const char* name, const char* descriptor, jobject* given) {
  const jmethodID method = env->GetMethodID(env->GetObjectClass(object), name, descriptor);
  if (method) *given = env->CallObjectMethod(object, method);
  return check(env, XNB_EXCEPTION);
}

}  // namespace

int32_t add_object_result(const Scope& scope, const char* name, Method* method) {
  JNIEnv* const env = scope.env();
  const jclass class_class = env->GetObjectClass(method->owner);
  jobjectArray classes = nullptr;
  if (const int32_t status = argument_classes(scope, class_class, method->signature, &classes)) return status;
  jstring java_name = nullptr;
  if (const int32_t status = scope.make_string(name, strlen(name), &java_name)) return status;
  const jobject found = find_method(env, method->owner, class_class, java_name, classes);
  if (!found) return XNB_NO_METHOD;
  clear_failure();

  jobject type = nullptr;
  if (const int32_t status = ask(env, found, "getReturnType", "()Ljava/lang/Class;", &type)) return status;
  // "int" and its like are no classes; arrays are named as in a descriptor, "[B", classes without their ends.
  const bool primitive = env->CallBooleanMethod(type, env->GetMethodID(class_class, "isPrimitive", "()Z"));
  if (const int32_t status = check(env, XNB_EXCEPTION)) return status;
  if (primitive) return fail(XNB_NO_METHOD, "the method %s gives no object", name);
  jobject type_name = nullptr;
  if (const int32_t status = ask(env, type, "getName", "()Ljava/lang/String;", &type_name)) return status;
  const jstring java_type_name = static_cast<jstring>(type_name);
  const char* const text = env->GetStringUTFChars(java_type_name, nullptr);
  if (!text) {
    env->ExceptionClear();
    return fail(XNB_NO_MEMORY, "no memory for the name of a class");
  }
  char* const end = method->signature.descriptor + method->signature.length;
  char type_of_result[kNameSize];
  const bool fits = slashed(text, strlen(text), type_of_result);
  env->ReleaseStringUTFChars(java_type_name, text);
  if (!fits) return fail(XNB_NO_METHOD, "the name of the class that %s gives is too long", name);
  const bool array = type_of_result[0] == '[';
  stpcpy(stpcpy(stpcpy(end, array ? "" : "L"), type_of_result), array ? "" : ";");
  return XNB_OK;
}

}  // namespace plov::bridge
