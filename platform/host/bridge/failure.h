// The thread's last failure: its one line of text, and how a Java exception becomes one.
#ifndef PLOV_BRIDGE_FAILURE_H
#define PLOV_BRIDGE_FAILURE_H

#include <jni.h>

#include "xnb.h"

namespace plov::bridge {

inline constexpr size_t kMessageSize = 1024;

void clear_failure();

// Both return `status`. A text that does not fit is cut between two characters; line ends become blanks.
int32_t fail(int32_t status, const char* format, ...) PLOV_PRINTF(2, 3);
int32_t fail_with_exception(JNIEnv* env, int32_t status);  // the one that is pending, which it clears

// The status of a step that Java may have refused: 0, or `status` with the exception's text.
int32_t check(JNIEnv* env, int32_t status);

// Copies UTF-8 text to `to`, NUL-terminated and cut between two characters.
void copy_message(char (&to)[kMessageSize], const char* text);

}  // namespace plov::bridge

#endif
