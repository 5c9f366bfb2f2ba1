// A set-up process with a Java VM in it, which takes SIGSEGV for its own checks.
#include <thread>

#include "support/crash.h"
#include "support/java_vm.h"

using namespace test;
using testing::HasSubstr;

namespace {

using JavaCrash = WithJavaVm;

// Java code that meets null, and the end of the stack, over and over.
bool works_on_this_thread() {
  int32_t caught = 0, overflow = 0;
  for (int i = 0; i < 5; ++i)
    if (xnbCallStaticIntMethod("plov.Calls", "caught", "I", &caught, 2000) != 0 || caught != 1000 ||
        xnbCallStaticIntMethod("plov.Calls", "overflow", "I", &overflow, 0) != 0 || overflow != 77)
      return false;
  return true;
}

bool works() {
  bool there;  // on a thread that is not set up
  std::thread([&] { there = works_on_this_thread(); }).join();
  return there && works_on_this_thread();
}

TEST_F(JavaCrash, IsReportedOnceAndTheVmKeepsItsFaults) {
  setenv("_JAVA_OPTIONS", "-Xmx24m -XX:+UseSerialGC -Xint", 1);  // which takes a fault for every null
  enum Order { kVmFirst, kVmLater, kVmBetween };
  for (Order order : {kVmFirst, kVmLater, kVmBetween}) {
    SCOPED_TRACE(order);
    const Visit visit = PceDaemon().serve_child([&] {
      uint32_t comprc;
      if (order == kVmFirst && !works()) return 93;
      prepare(0);
      if (!works()) return 94;
      if (order == kVmBetween) {
        xpce_unset(&new_action, &comprc);
        if (!works()) return 95;
        prepare(0);
        if (!works()) return 96;
      }
      raise(SIGPIPE);  // means nothing to a VM
      writes_nowhere();
      return 92;
    });
    // A VM that was there before makes a report of its own of the signal that it is given back, and aborts.
    EXPECT_EQ(visit.end, 1000 + (order == kVmFirst ? SIGABRT : SIGSEGV));
    EXPECT_THAT(report_of(visit, SIGSEGV).backtrace, HasSubstr("writes_nowhere"));
  }
}

}  // namespace
