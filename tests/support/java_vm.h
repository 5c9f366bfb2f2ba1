// A real Java VM in the test program, with the classes of tests/java. Included once, by a program that has one.
#ifndef PLOV_TESTS_JAVA_VM_H
#define PLOV_TESTS_JAVA_VM_H

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "xnb.h"

// What the VM leaves is not ours to judge.
extern "C" inline __attribute__((used)) const char* __asan_default_options() {
  return "detect_leaks=0";
}

namespace test {

inline constexpr const char* kVm = PLOV_TEST_JAVA "/lib/server/libjvm.so";
inline constexpr const char* kClassPath = PLOV_BINARY_DIR "/test_java.jar:" PLOV_BINARY_DIR "/plovbridge.jar";

// The bridge starts the VM at its first call.
class WithJavaVm : public testing::Test {
 protected:
  void SetUp() override {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "a Java VM does not run under the thread sanitizer";
#endif
    if (access(kVm, R_OK) != 0) GTEST_SKIP() << "NO JAVA VM at " << kVm << ": scripts/prepare check brings it";
    setenv("PLOV_JVM", kVm, 1);
    setenv("PLOV_CLASSPATH", kClassPath, 1);
    setenv("_JAVA_OPTIONS", "-Xmx24m -XX:+UseSerialGC", 0);
  }
};

// A Java string as text; it is released.
inline std::string text_of(xnb_object string) {
  char* text = nullptr;
  uint32_t length = 0;
  EXPECT_EQ(xnbGetStringAsUTF8(string, &text, &length), 0) << xnbGetLastErrorMessage();
  const std::string found(text ? text : "", length);
  EXPECT_EQ(xnbReleaseString(text), 0);
  EXPECT_EQ(xnbReleaseObjectReference(string), 0);
  return found;
}

inline xnb_object string_of(const std::string& text) {
  xnb_object string = nullptr;
  EXPECT_EQ(xnbCreateStringFromUTF8(text.data(), static_cast<uint32_t>(text.size()), &string), 0)
      << xnbGetLastErrorMessage();
  return string;
}

}  // namespace test

#endif
