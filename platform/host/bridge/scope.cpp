#include "platform/host/bridge/scope.h"

#include <limits.h>
#include <stdlib.h>

#include "platform/host/bridge/signature.h"
#include "platform/host/bridge/thread_state.h"
#include "platform/host/bridge/utf8.h"
#include "platform/host/bridge/vm.h"

namespace plov::bridge {
namespace {

constexpr jint kLocals = 3 * kMaxArguments;  // the arguments, their classes, and a few more

}  // namespace

Scope::Scope(Message message) {
  if (message == Message::clear) clear_failure();
  status_ = attach_thread(&env_);
  if (status_ != XNB_OK) return;
  pending_ = env_->ExceptionOccurred();
  if (pending_) env_->ExceptionClear();
  framed_ = env_->PushLocalFrame(kLocals) == 0;
  if (!framed_) status_ = fail_with_exception(env_, XNB_NO_MEMORY);
}

Scope::~Scope() {
  if (framed_) env_->PopLocalFrame(nullptr);
  if (!pending_) return;
  env_->Throw(pending_);
  env_->DeleteLocalRef(pending_);
}

int32_t Scope::find(xnb_object reference, jobject* object) const {
  *object = static_cast<jobject>(reference);
  if (!reference) return XNB_OK;
  // The name comes first: a VM that checks its callers ends the process when it is asked about a pointer that is none
  // of its own.
  const NamedString* const named = find_named_string(reference);
  if (!named)
    return env_->GetObjectRefType(*object) == JNIGlobalRefType
               ? XNB_OK
               : fail(XNB_BAD_REFERENCE, "%p is no living reference and no string's name", reference);
  jstring string = nullptr;
  const int32_t status = make_string(named->text, named->length, &string);
  *object = string;
  return status;
}

int32_t Scope::need(xnb_object reference, jobject* object) const {
  return reference ? find(reference, object) : fail(XNB_BAD_REFERENCE, "null in the place of an object");
}

int32_t Scope::need(xnb_object reference, const char* class_name, jobject* object) const {
  if (const int32_t status = need(reference, object)) return status;
  jclass wanted = nullptr;
  if (const int32_t status = find_class(class_name, &wanted)) return status;
  return env_->IsInstanceOf(*object, wanted) ? XNB_OK : fail(XNB_BAD_REFERENCE, "the object is no %s", class_name);
}

int32_t Scope::hand_out(jobject object, xnb_object* reference) const {
  *reference = object ? env_->NewGlobalRef(object) : nullptr;
  if (!object || *reference) return XNB_OK;
  env_->ExceptionClear();
  return fail(XNB_NO_MEMORY, "no memory for a reference");
}

int32_t Scope::find_class(const char* slashed_name, jclass* found) const {
  *found = env_->FindClass(slashed_name);
  return check(env_, XNB_NO_CLASS);
}

int32_t Scope::make_string(const char* text, size_t length, jstring* string) const {
  if (length > INT_MAX) return fail(XNB_BAD_ARGUMENT, "a string of %zu bytes", length);
  uint16_t few[256];
  const bool fits = length <= sizeof few / sizeof few[0];
  uint16_t* const units = fits ? few : static_cast<uint16_t*>(malloc(length * sizeof(uint16_t)));
  if (!units) return fail(XNB_NO_MEMORY, "no memory for a string of %zu bytes", length);
  *string = env_->NewString(units, static_cast<jsize>(to_utf16({text, length}, units)));
  if (!fits) free(units);
  return check(env_, XNB_EXCEPTION);
}

}  // namespace plov::bridge
