// Strings: between the caller's UTF-8 and Java's.
#include "platform/host/bridge/scope.h"
#include "platform/host/bridge/thread_state.h"
#include "platform/host/bridge/utf8.h"
#include "plovmemdebug.h"

using namespace plov::bridge;

int32_t xnbCreateStringFromUTF8(const char* text, uint32_t length, xnb_object* string) {
  const Scope scope;
  if (string) *string = nullptr;
  if (scope.status() != XNB_OK) return scope.status();
  if (!string || (!text && length > 0)) return fail(XNB_BAD_ARGUMENT, "no text or no place for the string");
  jstring made = nullptr;
  if (const int32_t status = scope.make_string(text, length, &made)) return status;
  return scope.hand_out(made, string);
}

int32_t xnbCreateNamedStringFromUTF8(const char* name, const char* text, uint32_t length) {
  const Scope scope;
  if (scope.status() != XNB_OK) return scope.status();
  if (!name || (!text && length > 0)) return fail(XNB_BAD_ARGUMENT, "no name or no text for the string");
  return set_named_string(name, {text, length});
}

int32_t xnbGetStringAsUTF8(xnb_object string, char** text, uint32_t* length) {
  const Scope scope;
  if (text) *text = nullptr;
  if (length) *length = 0;
  if (scope.status() != XNB_OK) return scope.status();
  if (!text || !length) return fail(XNB_BAD_ARGUMENT, "no place for the text or its length");
  jobject object = nullptr;
  if (const int32_t status = scope.need(string, "java/lang/String", &object)) return status;
  const jstring java = static_cast<jstring>(object);
  const jchar* const characters = scope.env()->GetStringChars(java, nullptr);
  if (!characters) {
    scope.env()->ExceptionClear();
    return fail(XNB_NO_MEMORY, "no memory for the string's characters");
  }
  const std::span units(characters, static_cast<size_t>(scope.env()->GetStringLength(java)));
  const size_t size = utf8_length(units);
  const bool countable = size < UINT32_MAX;
  *text = countable ? static_cast<char*>(plovmemdebug_malloc(size + 1, __FILE__, __LINE__)) : nullptr;
  if (*text) (*text)[to_utf8(units, *text)] = '\0';
  scope.env()->ReleaseStringChars(java, characters);
  if (!*text) return fail(XNB_NO_MEMORY, "no memory for a text of %zu bytes", size);
  *length = static_cast<uint32_t>(size);
  return XNB_OK;
}

int32_t xnbReleaseString(char* text) {
  plovmemdebug_free(text, __FILE__, __LINE__);
  return XNB_OK;
}
