#include "platform/host/bridge/failure.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "platform/host/bridge/utf8.h"

namespace plov::bridge {
namespace {

thread_local char message[kMessageSize];
thread_local int32_t saved_status;

// What Java says of a throwable; null when saying so throws too.
jstring text_of(JNIEnv* env, jthrowable thrown) {
  const jclass throwable = env->GetObjectClass(thrown);
  const jmethodID to_string = env->GetMethodID(throwable, "toString", "()Ljava/lang/String;");
  const jobject text = to_string ? env->CallObjectMethod(thrown, to_string) : nullptr;
  if (!env->ExceptionCheck()) return static_cast<jstring>(text);
  env->ExceptionClear();
  return nullptr;
}

void cut(char (&text)[kMessageSize], size_t length) {
  length = whole_characters(text, length < kMessageSize ? length : kMessageSize - 1);
  text[length] = '\0';
}

void make_one_line(char* text) {
  for (; *text; ++text)
    if (static_cast<unsigned char>(*text) < ' ') *text = ' ';
}

}  // namespace

void clear_failure() {
  message[0] = '\0';
}

int32_t fail(int32_t status, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(message, sizeof message, format, arguments);
  va_end(arguments);
  cut(message, length < 0 ? 0 : static_cast<size_t>(length));
  make_one_line(message);
  return status;
}

int32_t fail_with_exception(JNIEnv* env, int32_t status) {
  const jthrowable thrown = env->ExceptionOccurred();
  env->ExceptionClear();
  const jstring text = thrown ? text_of(env, thrown) : nullptr;
  if (!text) return fail(status, "a Java exception without a text");
  jchar units[kMessageSize];
  const jsize whole = env->GetStringLength(text);
  const jsize count = whole < static_cast<jsize>(kMessageSize) ? whole : static_cast<jsize>(kMessageSize);
  env->GetStringRegion(text, 0, count, units);
  char bytes[3 * kMessageSize + 1];
  bytes[to_utf8({units, static_cast<size_t>(count)}, bytes)] = '\0';
  return fail(status, "%s", bytes);
}

int32_t check(JNIEnv* env, int32_t status) {
  return env->ExceptionCheck() ? fail_with_exception(env, status) : XNB_OK;
}

void copy_message(char (&to)[kMessageSize], const char* text) {
  const size_t length = strnlen(text, kMessageSize);
  memcpy(to, text, length < kMessageSize ? length : kMessageSize - 1);
  cut(to, length);
}

}  // namespace plov::bridge

const char* xnbGetLastErrorMessage() {
  return plov::bridge::message;
}

// Every call's result is its status already: there is never more to fetch.
int32_t xnbSaveStatus(int32_t result) {
  plov::bridge::saved_status = result;
  return 0;
}

uint32_t xnbGetAllocaLen() {
  return 0;
}

int32_t xnbUnloadAlloca(void*) {
  return plov::bridge::saved_status;
}

int32_t xnbGetLastStatus() {
  return plov::bridge::saved_status;
}
