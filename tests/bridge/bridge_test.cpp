// The Java bridge against a real VM, which it starts in the test program; the Java classes are in tests/java.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <jni.h>
#include <limits.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "plovmemdebug.h"
#include "support/child.h"
#include "support/java_vm.h"
#include "support/pages.h"
#include "support/worker.h"
#include "xlog.h"
#include "xnb.h"
#include "xpce.h"
#include "xtr.h"

using namespace test;

namespace {

using testing::HasSubstr;

constexpr const char* kCalls = "plov.Calls";
constexpr const char* kListener = "com.zanth.vemra.xfw.pa.util.LogListener";
constexpr const char* kSim = "com.zanth.vemra.base.util.SimServer";

std::string message() {
  return xnbGetLastErrorMessage();
}

// Each call once, good arguments or not.
std::vector<int32_t> every_call() {
  xnb_object object = nullptr;
  uint32_t length;
  int32_t number;
  char* text;
  return {xnbCreateStringFromUTF8("x", 1, &object),
          xnbCreateNamedStringFromUTF8("NAME", "x", 1),
          xnbGetStringAsUTF8(&object, &text, &length),
          xnbCreateArrayI("B", 1, &object),
          xnbGetArrayLength(&object, &length),
          xnbGetByteArrayElements(&object, 0, 1, &number),
          xnbSetByteArrayElements(&object, 0, 1, &number),
          xnbInstantiateObjectI("java.lang.Object", "", &object),
          xnbReleaseObjectReference(&object),
          xnbCallVoidMethod("notify", "", &object),
          xnbCallObjectMethodI("toString", "", &object, &object),
          xnbCallStaticVoidMethod(kSim, "setSimData", "I[B", 1001, nullptr),
          xnbCallStaticIntMethod(kCalls, "caught", "I", &number, 1),
          xnbCallStaticObjectMethodI(kSim, "getSimData", "I", &object, 1001),
          xnbGetObjectArgument(nullptr, 0, &object),
          xnbSetIntResult(nullptr, 0),
          xnbSetNativeFunctionError(nullptr, ""),
          xnbSetReturnCodes(nullptr, 0, 0)};
}

TEST(WithoutVm, EveryCallHasTheOneStatus) {
  EXPECT_THAT(every_call(), testing::Each(XNB_NO_VM));
  EXPECT_EQ(message(), "no Java VM in this process");
  EXPECT_EQ(xnbReleaseObjectReference(nullptr), 0);
  EXPECT_EQ(xnbReleaseString(nullptr), 0);
  setenv("PLOV_JVM", "/nowhere/libjvm.so", 1);
  EXPECT_THAT(every_call(), testing::Each(XNB_NO_VM));
  EXPECT_THAT(message(), HasSubstr("/nowhere/libjvm.so"));
}

std::string through_java(const std::string& text) {
  const xnb_object string = string_of(text);
  xnb_object same = nullptr;
  EXPECT_EQ(xnbCallStaticObjectMethodI(kCalls, "same", "Ljava.lang.String;", &same, string), 0) << message();
  EXPECT_EQ(xnbReleaseObjectReference(string), 0);
  return text_of(same);
}

using Bridge = WithJavaVm;

// Probes and log operations exchange the SIGSEGV action all the time; the VM's must survive them, and they it.
TEST_F(Bridge, StartsAmongProbesAndLogOperationsAndBothTakeTheirFaults) {
  std::atomic<bool> stop = false;
  std::atomic<int> records = 0;
  std::thread logger([&] {
    for (; !stop; ++records) {
      xlog_log_request request = {};
      uint32_t comprc;
      EXPECT_EQ(xlog_record(&request, &comprc), 0);
    }
  });
  std::thread prober([&] {
    const test::Pages closed(1, PROT_NONE);
    for (uint32_t comprc; !stop;) EXPECT_EQ(xpce_ckptr(closed.begin(), 8, &comprc), 2);
  });
  while (records == 0) usleep(1000);
  int32_t caught = 0;
  EXPECT_EQ(xnbCallStaticIntMethod(kCalls, "caught", "I", &caught, 20000), 0) << message();
  EXPECT_EQ(caught, 10000);
  struct sigaction term;
  sigaction(SIGTERM, nullptr, &term);
  EXPECT_EQ(term.sa_handler, SIG_DFL);
  stop = true;
  logger.join();
  prober.join();
}

TEST_F(Bridge, NeitherStartsUnderTheProbesMutexNorServesAForkedChild) {
  pthread_mutex_lock(&xtr_mutex_sem);
  EXPECT_THAT(every_call(), testing::Each(XNB_NO_VM));
  pthread_mutex_unlock(&xtr_mutex_sem);
  EXPECT_EQ(through_java("x"), "x");
  EXPECT_EQ(test::in_child([] { return every_call() == std::vector<int32_t>(18, XNB_NO_VM) ? 0 : 1; }), 0);
}

// Nor when the VM is the program's own, visible to itself alone, and no call has met it before the fork.
TEST_F(Bridge, ServesAVmOfTheProgramsOwnAndNoChildForkedFromIt) {
  void* const library = dlopen(kVm, RTLD_NOW);
  const auto create = reinterpret_cast<decltype(&JNI_CreateJavaVM)>(dlsym(library, "JNI_CreateJavaVM"));
  std::string class_path = "-Djava.class.path=" + std::string(kClassPath);
  JavaVMOption option = {class_path.data(), nullptr};
  JavaVMInitArgs arguments = {JNI_VERSION_1_8, 1, &option, JNI_FALSE};
  JavaVM* vm;
  void* env;
  ASSERT_EQ(create(&vm, &env, &arguments), JNI_OK);
  EXPECT_EQ(test::in_child([] {
              alarm(10);  // the VM's threads are the parent's: a call may wait for them
              return every_call() == std::vector<int32_t>(18, XNB_NO_VM) ? 0 : 1;
            }),
            0);
  EXPECT_EQ(through_java("x"), "x");
}

TEST_F(Bridge, HandsOverEveryTypeOfArgument) {
  xnb_object array = nullptr, text = nullptr;
  ASSERT_EQ(xnbCreateNamedStringFromUTF8("NAME", "first", 5), 0);
  ASSERT_EQ(xnbCreateNamedStringFromUTF8("NAME", "zwei \xE2\x82\xAC", 8), 0);
  const std::string name = "NAME";  // another place
  EXPECT_EQ(xnbCallStaticObjectMethodI(kCalls, "all", "ZBCSIJFDLjava.lang.String;[[I", &text, 256, 0x1F0, 0x1FFFF,
                                       0x18000, INT_MIN, INT64_MIN, 1.5, -0.25, name.c_str(), nullptr),
            0)
      << message();
  EXPECT_EQ(text_of(text), "true -16 65535 -32768 -2147483648 -9223372036854775808 1.5 -0.25 zwei \xE2\x82\xAC null");
  EXPECT_EQ(xnbReleaseObjectReference(const_cast<char*>("NAME")), 0);
  EXPECT_EQ(xnbReleaseObjectReference(const_cast<char*>("NAME")), XNB_BAD_REFERENCE);
  EXPECT_EQ(xnbCreateArrayI("[I", 2, &array), 0);
  EXPECT_EQ(xnbCallStaticObjectMethodI(kCalls, "all", "ZBCSIJFDLjava.lang.String;[[I", &text, 0, 0, 0, 0, 0, INT64_C(0),
                                       0.0, 0.0, nullptr, array),
            0);
  EXPECT_THAT(text_of(text), HasSubstr("null [[I@"));
  EXPECT_EQ(xnbReleaseObjectReference(array), 0);
}

TEST_F(Bridge, RendersAnEventTheWayTheRecorderDoes) {
  xnb_object log, array, event_log, text, string;
  ASSERT_EQ(xnbCreateNamedStringFromUTF8("EVENTNAME", "a name", 6), 0);
  EXPECT_EQ(xnbInstantiateObjectI(
                "com.zanth.vemra.fw.log.Log",
                "BBSLjava.lang.String;Ljava.util.Date;Ljava.lang.Throwable;Ljava.lang.String;Ljava.lang.String;", &log,
                33, 2, 7, "EVENTNAME", nullptr, nullptr, nullptr, nullptr),
            0)
      << message();
  EXPECT_EQ(xnbSaveStatus(xnbCreateArrayI("B", 3, &array)), 0);
  EXPECT_EQ(xnbGetLastStatus(), 0);
  EXPECT_EQ(xnbCallVoidMethod("add", "Ljava.lang.Object;BLcom.zanth.vemra.fw.util.ObjectDumperAttributes;", log, array,
                              16, nullptr),
            0)
      << message();
  EXPECT_EQ(xnbInstantiateObjectI("com.zanth.vemra.fw.log.EventLog", "Lcom.zanth.vemra.fw.log.Log;", &event_log, log),
            0);
  EXPECT_EQ(xnbCallObjectMethodI("getEventText", "", event_log, &text), 0) << message();
  EXPECT_EQ(xnbCallObjectMethodI("toString", "", text, &string), 0) << message();
  EXPECT_EQ(text_of(string), "33 2 7 a name 16=3");
  EXPECT_EQ(xnbCallVoidMethod("add", "Ljava.lang.Object;BLcom.zanth.vemra.fw.util.ObjectDumperAttributes;", log, array,
                              16, text),
            XNB_BAD_REFERENCE);
  EXPECT_EQ(xnbCallStaticVoidMethod(kListener, "handle", "BBSJ", 1, 2, 3, INT64_C(1234567890123)), 0);
  EXPECT_EQ(xnbCallStaticObjectMethodI(kListener, "last", "", &string), 0);
  EXPECT_EQ(text_of(string), "1 2 3 1234567890123");
  for (const xnb_object object : {log, array, event_log, text}) EXPECT_EQ(xnbReleaseObjectReference(object), 0);
  xnb_object derived, hidden;
  EXPECT_EQ(xnbInstantiateObjectI("plov.Calls$Derived", "", &derived), 0);
  EXPECT_EQ(xnbCallObjectMethodI("hidden", "Ljava.lang.String;", derived, &hidden, "EVENTNAME"), 0) << message();
  EXPECT_EQ(text_of(hidden), "hidden a name");
}

TEST_F(Bridge, TellsEveryFailureFromEveryOther) {
  xnb_object object = &object, string = string_of("text");
  int32_t number = 55;
  const auto expect = [](int32_t got, int32_t status, const char* words) {
    EXPECT_EQ(got, status) << message();
    EXPECT_THAT(message(), HasSubstr(words));
    EXPECT_EQ(xnbSaveStatus(got), 0);
    EXPECT_EQ(xnbGetLastStatus(), status);
    EXPECT_EQ(xnbUnloadAlloca(nullptr), status);
  };
  expect(xnbCallStaticVoidMethod(kListener, "handle", "BBSJ", 0x7F, 2, 3, INT64_C(4)), XNB_EXCEPTION,
         "java.lang.IllegalStateException: \xC3\x9C"
         "berlauf \xF0\x9F\x98\x80");
  expect(xnbCallStaticVoidMethod(kCalls, "nameless", ""), XNB_EXCEPTION, "a Java exception without a text");
  expect(xnbCallStaticVoidMethod("no.such.Class", "x", ""), XNB_NO_CLASS, "no/such/Class");
  expect(xnbInstantiateObjectI("plov.Calls$Broken", "", &object), XNB_NO_CLASS, "ExceptionInInitializerError");
  EXPECT_EQ(object, nullptr);
  expect(xnbCallStaticVoidMethod(kListener, "handle", "BBS", 1, 2, 3), XNB_NO_METHOD, "handle(BBS)V");
  expect(xnbCallStaticIntMethod(kListener, "last", "", &number), XNB_NO_METHOD, "last()I");
  expect(xnbCallStaticObjectMethodI(kSim, "noSimData", "I", &object, 1), XNB_NO_METHOD, "SimServer.noSimData(int)");
  expect(xnbCallStaticObjectMethodI(kCalls, "caught", "I", &object, 1), XNB_NO_METHOD, "gives no object");
  expect(xnbCallStaticObjectMethodI(kCalls, "toString", "", &object), XNB_NO_METHOD, "toString");
  for (const char* signature : {"X", "L", "Lx", "[", "II(", "L;", "V"})
    expect(xnbCallStaticIntMethod(kCalls, "caught", signature, &number, 1), XNB_BAD_ARGUMENT, "signature");
  expect(xnbCallStaticIntMethod(kCalls, "caught", std::string(33, 'I').c_str(), &number), XNB_BAD_ARGUMENT,
         "signature");
  expect(xnbCreateArrayI("BB", 1, &object), XNB_BAD_ARGUMENT, "BB");
  expect(xnbCreateArrayI("B", 0x80000000u, &object), XNB_BAD_ARGUMENT, "2147483648");
  expect(xnbCreateArrayI("B", 100000000, &object), XNB_EXCEPTION, "OutOfMemoryError");
  uint32_t length = 0;
  char* text = nullptr;
  expect(xnbGetArrayLength(string, &length), XNB_BAD_REFERENCE, "no array");
  expect(xnbGetArrayLength(nullptr, &length), XNB_BAD_REFERENCE, "null");
  EXPECT_EQ(xnbCreateNamedStringFromUTF8("NAME", "x", 1), 0);
  const test::Pages closed(1, PROT_NONE);
  for (void* bad : {static_cast<void*>(closed.begin()), static_cast<void*>(&length), reinterpret_cast<void*>(1)})
    expect(xnbGetStringAsUTF8(bad, &text, &length), XNB_BAD_REFERENCE, "no living reference");
  EXPECT_EQ(number, 55);
  EXPECT_EQ(xnbReleaseObjectReference(string), 0);
  EXPECT_THAT(message(), HasSubstr("no living reference")) << "a release leaves the message";
  EXPECT_EQ(through_java(""), "");
  EXPECT_EQ(message(), "");
}

TEST_F(Bridge, KeepsTextsOfEveryLengthAndAlphabet) {
  std::string characters(
      "\0\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", 26);
  EXPECT_EQ(through_java(characters), characters);
  for (size_t size : {1, 255, 256, 257, 100000})
    EXPECT_EQ(through_java(std::string(size, 'x')), std::string(size, 'x'));
  const std::string bad = "\xEF\xBF\xBD";
  const std::pair<const char*, int> broken[] = {{"\x80", 1},         {"\xC0\x80", 2},         {"\xE2\x82", 2},
                                                {"\xED\xA0\x80", 3}, {"\xF0\x8F\xBF\xBF", 4}, {"\xF4\x90\x80\x80", 4},
                                                {"\xFF", 1}};
  for (const auto& [text, count] : broken) {
    std::string expected = "a";
    for (int i = 0; i < count; ++i) expected += bad;
    EXPECT_EQ(through_java("a" + std::string(text) + "b"), expected + "b");
  }
  EXPECT_EQ(plovmemdebug_list(nullptr, nullptr), 0u);
  const xnb_object wrong = string_of(std::string(1022, 'x') + "\xE2\x82\xAC");
  int32_t number;
  EXPECT_EQ(xnbCallStaticIntMethod("com.zanth.vemra.fw.shutdown.ShutdownManager", "nativeRestart",
                                   "Ljava.lang.String;Ljava.lang.String;I", &number, wrong, wrong, 1),
            XNB_EXCEPTION);
  EXPECT_EQ(message().size(), 1023u);
  EXPECT_EQ(xnbReleaseObjectReference(wrong), 0);
}

TEST_F(Bridge, CopiesBytesOfArraysOfEveryLength) {
  for (uint32_t size : {0u, 1u, 255u, 4096u, 1000000u}) {
    const std::string value(size, '\xA5');
    std::string got(size, '\0');
    xnb_object array = nullptr, found = nullptr;
    uint32_t length = 77;
    ASSERT_EQ(xnbCreateArrayI("B", size, &array), 0) << message();
    ASSERT_EQ(xnbSetByteArrayElements(array, 0, size, size ? value.data() : nullptr), 0);
    ASSERT_EQ(xnbCallStaticVoidMethod(kSim, "setSimData", "I[B", 1001, array), 0) << message();
    ASSERT_EQ(xnbCallStaticObjectMethodI(kSim, "getSimData", "I", &found, 1001), 0) << message();
    ASSERT_EQ(xnbGetArrayLength(found, &length), 0);
    EXPECT_EQ(length, size);
    EXPECT_EQ(xnbGetByteArrayElements(found, 0, size, got.data()), 0);
    EXPECT_EQ(got, value);
    EXPECT_EQ(xnbGetByteArrayElements(found, 1, size, got.data()), XNB_EXCEPTION);
    EXPECT_EQ(got, value);
    xnbReleaseObjectReference(array);
    xnbReleaseObjectReference(found);
  }
  xnb_object none = &none;
  EXPECT_EQ(xnbCallStaticObjectMethodI(kSim, "getSimData", "I", &none, 1999), 0);
  EXPECT_EQ(none, nullptr);
}

// 100,000 arrays of 4 KB through a heap of 24 MB: a reference left behind, local or global, would fill it.
TEST_F(Bridge, LeavesNoReferenceBehindInAHundredThousandCallsOfSeveralThreads) {
  xnb_object array = nullptr;
  ASSERT_EQ(xnbCreateArrayI("B", 4096, &array), 0);
  ASSERT_EQ(xnbCallStaticVoidMethod(kSim, "setSimData", "I[B", 1002, array), 0);
  std::atomic<int> failed = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 25000 && failed == 0; ++i) {
        xnb_object found = nullptr;
        failed += xnbCallStaticObjectMethodI(kSim, "getSimData", "I", &found, 1002) != 0;
        failed += i % 100 == 0 && xnbCallStaticVoidMethod(kCalls, "nameless", "") != XNB_EXCEPTION;
        failed += xnbReleaseObjectReference(found) != 0;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failed, 0);
  // Threads that have ended are the VM's no longer.
  for (int i = 0; i < 500; ++i) std::thread([] { EXPECT_EQ(xnbCreateNamedStringFromUTF8("N", "x", 1), 0); }).join();
  int32_t threads_left = 0;
  EXPECT_EQ(xnbCallStaticIntMethod("java.lang.Thread", "activeCount", "", &threads_left), 0);
  EXPECT_EQ(threads_left, 1);
}

TEST_F(Bridge, LeavesAnExceptionPendingThatWasPendingBefore) {
  EXPECT_EQ(through_java("x"), "x");
  const auto find = reinterpret_cast<decltype(&JNI_GetCreatedJavaVMs)>(dlsym(RTLD_DEFAULT, "JNI_GetCreatedJavaVMs"));
  JavaVM* vm = nullptr;
  jsize count = 0;
  ASSERT_EQ(find(&vm, 1, &count), JNI_OK);
  JNIEnv* env = nullptr;
  ASSERT_EQ(vm->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_8), JNI_OK);
  env->ThrowNew(env->FindClass("java/lang/IllegalStateException"), "before");
  EXPECT_EQ(through_java("y"), "y");
  EXPECT_EQ(xnbCallStaticVoidMethod(kCalls, "nameless", ""), XNB_EXCEPTION);
  EXPECT_TRUE(env->ExceptionCheck());
  env->ExceptionClear();
}

TEST_F(Bridge, AnswersAFunctionCallOfJava) {
  const auto request = [](const char* name, int length) {
    xnb_object text = nullptr;
    xnbCreateNamedStringFromUTF8("F", name, static_cast<uint32_t>(strlen(name)));
    EXPECT_EQ(xnbCallStaticObjectMethodI(kCalls, "request", "Ljava.lang.String;I", &text, "F", length), 0) << message();
    return text_of(text);
  };
  EXPECT_EQ(request("bridge_test_length", 5), "result 5");
  EXPECT_EQ(request("bridge_test_length", 3),
            "Gr\xC3\xB6\xC3\x9F"
            "e 3 8 18689 3");
  EXPECT_THAT(request("bridge_test_fails", 1), HasSubstr("no argument 77 of 2, or no place for it 0 40966 0"));
  EXPECT_THAT(request("bridge_test_nowhere", 1), HasSubstr("UnsatisfiedLinkError: bridge_test_nowhere"));
  EXPECT_EQ(xnbSetIntResult(nullptr, 1), XNB_BAD_ARGUMENT);
}

TEST_F(Bridge, ServesAProcessThatJavaStarted) {
  unsetenv("_JAVA_OPTIONS");
  test::Process java("env -u PLOV_JVM LD_PRELOAD=" PLOV_BINARY_DIR "/libbridge_functions.so " PLOV_TEST_JAVA
                     "/bin/java -Djava.library.path=" PLOV_BINARY_DIR " -cp " +
                     std::string(kClassPath) + " plov.Calls bridge_test_length");
  if (std::string(PLOV_BINARY_DIR).find("san") != std::string::npos) GTEST_SKIP() << "Java itself has no sanitizer";
  EXPECT_THAT(java.rest(), HasSubstr("result 5, "));
  EXPECT_EQ(java.wait(), 0);
}

}  // namespace
