// The pointer probes: what passes, what does not, and that nobody else notices them.
#include <alloca.h>
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <sys/mman.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/child.h"
#include "support/codes.h"
#include "support/doubles.h"
#include "support/pages.h"
#include "support/signals.h"
#include "support/traced.h"
#include "xpce.h"
#include "xtr.h"

namespace {

// Which of the probe's services fail, and what happens the moment its handler is installed.
int failing_mutex_lock, failing_unblock, failing_setmask, failing_install, failing_restore;
std::function<void()> while_probing;

}  // namespace

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) {
  static const auto real = REAL(pthread_mutex_lock);
  return failing_mutex_lock && mutex == &xtr_mutex_sem ? failing_mutex_lock : real(mutex);
}

extern "C" int pthread_sigmask(int how, const sigset_t* set, sigset_t* old) {
  static const auto real = REAL(pthread_sigmask);
  if (how == SIG_UNBLOCK && failing_unblock) return failing_unblock;
  if (how == SIG_SETMASK && failing_setmask) return failing_setmask;
  return real(how, set, old);
}

extern "C" int sigaction(int signal, const struct sigaction* action, struct sigaction* old) {
  static const auto real = REAL(sigaction);
  const bool install = signal == SIGSEGV && action && old, restore = signal == SIGSEGV && action && !old;
  if ((install && failing_install) || (restore && failing_restore)) {
    errno = install ? failing_install : failing_restore;
    return -1;
  }
  const int result = real(signal, action, old);
  if (install && while_probing) std::exchange(while_probing, nullptr)();
  return result;
}

using namespace test;

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr uint32_t kUnwritten = 0xDEAD;
constexpr Codes kWritable(0, 0xCC00), kReadable(0, 0xC800), kFault(2, 6), kWrap(2, 7);

Codes write_probe(const void* address, uint32_t size) {
  return test::codes(xpce_ckptr, address, size);
}

Codes read_probe(const void* address, uint32_t size) {
  return test::codes(xpce_ckptr_rd, address, size);
}

Codes string_probe(const void* string, uint32_t* length) {
  *length = kUnwritten;
  return test::codes(xpce_ckstr, static_cast<const char*>(string), length);
}

void* at(uintptr_t address) {
  return reinterpret_cast<void*>(address);
}

TEST(Probe, TestsTheEndOfTheRange) {
  Pages pages(2, PROT_READ | PROT_WRITE);
  uint8_t *const begin = pages.begin(), *const end = pages.end();
  memset(begin, 0x5A, 2 * kPage);
  EXPECT_EQ(write_probe(begin, 2 * kPage), kWritable);
  EXPECT_EQ(read_probe(begin, 2 * kPage), kReadable);
  EXPECT_EQ(write_probe(begin - kPage + 4, kPage), kWritable) << "only its last four bytes are mapped";
  EXPECT_EQ(write_probe(begin - kPage + 3, kPage), kFault) << "only its last three bytes are mapped";
  EXPECT_EQ(write_probe(end - kPage + 1, kPage), kFault) << "its last byte is not mapped";
  for (uint32_t size = 1; size <= 4; ++size) {
    EXPECT_EQ(write_probe(begin, size), kWritable);
    EXPECT_EQ(write_probe(end - size, size), kWritable);
    EXPECT_EQ(write_probe(begin - 1, size), kFault) << "a short range is tested whole";
    EXPECT_EQ(read_probe(end - size + 1, size), kFault);
  }
  for (size_t i = 0; i < 2 * kPage; ++i) ASSERT_EQ(begin[i], 0x5A) << "a probe changed byte " << i;
  for (void* anywhere : {at(0), at(1), static_cast<void*>(end), at(UINTPTR_MAX)})
    EXPECT_EQ(write_probe(anywhere, 0), kWritable) << "size 0 passes at any address";
}

TEST(Probe, TellsReadingFromWriting) {
  Pages pages(3, PROT_READ | PROT_WRITE);
  pages.protect(0, PROT_READ);
  pages.protect(1, PROT_NONE);
  EXPECT_EQ(read_probe(pages.begin(), kPage), kReadable);
  EXPECT_EQ(write_probe(pages.begin(), kPage), kFault);
  EXPECT_EQ(read_probe(pages.begin() + kPage, kPage), kFault);
  EXPECT_EQ(write_probe(pages.begin() + kPage, kPage), kFault);
  EXPECT_EQ(read_probe(reinterpret_cast<void*>(&xpce_ckptr), 16), kReadable);
  EXPECT_EQ(write_probe(reinterpret_cast<void*>(&xpce_ckptr), 16), kFault);
  for (uintptr_t address : {uintptr_t{0}, uintptr_t{1}, UINTPTR_MAX / 2 + 1, UINTPTR_MAX - 3, UINTPTR_MAX - 4095})
    EXPECT_EQ(write_probe(at(address), 4), address + 4 < address ? kWrap : kFault) << address;
  uint32_t comprc = 0;
  EXPECT_EQ(xpce_internal_ckptr(pages.begin(), 4, 0x100, &comprc), 2) << "any non-zero flag tests writing";
  EXPECT_THAT(traced(), HasSubstr("XPCE___F: -> xpce_handler: xpce_ckptr handler running with signal 11\n"));
  EXPECT_THAT(traced(), HasSubstr("XPCE___F: <- xpce_handler: About to Long jump back\n"));
}

TEST(Probe, RefusesARangeThatWraps) {
  EXPECT_EQ(write_probe(at(UINTPTR_MAX - 15), 32), kWrap);
  EXPECT_EQ(read_probe(at(UINTPTR_MAX - 15), 32), kWrap);
  EXPECT_THAT(traced(), HasSubstr("XPCECK_F: size of 32 is too large, it caused the pointer wrap\n"));
  EXPECT_THAT(traced(), Not(HasSubstr("xpce_handler"))) << "a byte was touched";
}

TEST(Probe, ResultIsOneWhenComprcIsUnusable) {
  Pages pages(1, PROT_READ);
  uint32_t length = kUnwritten;
  for (void* bad :
       {at(0), at(1), static_cast<void*>(pages.begin()), static_cast<void*>(pages.end() - 2), at(UINTPTR_MAX - 7)}) {
    uint32_t* comprc = static_cast<uint32_t*>(bad);
    EXPECT_EQ(xpce_ckptr(&length, 4, comprc), 1);
    EXPECT_EQ(xpce_ckptr_rd(at(0), 4, comprc), 1);
    EXPECT_EQ(xpce_ckptr(at(UINTPTR_MAX), 4, comprc), 1) << "comprc is tested before the wrap";
    EXPECT_EQ(xpce_ckstr("text", &length, comprc), 1);
    EXPECT_EQ(length, kUnwritten);
  }
}

TEST(Probe, CountsAStringToItsEnd) {
  Pages pages(1, PROT_READ | PROT_WRITE);
  memset(pages.begin(), 'a', kPage);
  uint32_t length;
  EXPECT_EQ(string_probe("", &length), Codes(0, kUnwritten));
  EXPECT_EQ(length, 0u);
  for (const void* bad : {static_cast<const void*>(pages.end() - 10), static_cast<const void*>(pages.end()),
                          static_cast<const void*>(nullptr)}) {
    EXPECT_EQ(string_probe(bad, &length), Codes(2, 2));
    EXPECT_EQ(length, kUnwritten);
  }
  pages.end()[-1] = '\0';
  EXPECT_EQ(string_probe(pages.end() - 10, &length), Codes(0, kUnwritten));
  EXPECT_EQ(length, 9u);

  Pages endless(XPCE_STRING_LIMIT / kPage, PROT_READ | PROT_WRITE);
  memset(endless.begin(), 'a', XPCE_STRING_LIMIT);
  EXPECT_EQ(string_probe(endless.begin(), &length), Codes(0, kUnwritten));
  EXPECT_EQ(length, XPCE_STRING_LIMIT);
  EXPECT_EQ(string_probe(endless.begin() + 1, &length), Codes(2, 2));
  // Wherever on the stack a dead frame may lie.
  for (size_t depth = 16; depth <= 2048; depth += 16) {
    static_cast<volatile char*>(alloca(16))[0] = 0;
    uint32_t comprc = kUnwritten;
    EXPECT_EQ(xpce_ckstr("hello", nullptr, &comprc), 2);
    EXPECT_EQ(comprc, 2u);
  }
}

TEST(Probe, LeavesActionAndMaskAsTheyWere) {
  uint32_t length;
  for (int kind = 0; kind < 4; ++kind) {
    handle_crashes(
        kind == 0   ? SIG_DFL
        : kind == 1 ? SIG_IGN
                    : [](int) { _exit(3); },
        kind == 2   ? SA_RESTART | SA_NODEFER
        : kind == 3 ? SA_ONSTACK | SA_RESETHAND
                    : 0);
    sigset_t blocked, old;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    if (kind % 2 == 1) sigaddset(&blocked, SIGSEGV);
    pthread_sigmask(SIG_SETMASK, &blocked, &old);
    const SignalState before;
    EXPECT_EQ(write_probe(&length, 4), kWritable);
    EXPECT_EQ(write_probe(at(0), 4), kFault);
    EXPECT_EQ(read_probe(at(UINTPTR_MAX), 4), kWrap);
    EXPECT_EQ(xpce_ckptr(&length, 4, nullptr), 1);
    EXPECT_EQ(string_probe(at(0), &length), Codes(2, 2));
    EXPECT_EQ(string_probe("good", &length), Codes(0, kUnwritten));
    EXPECT_TRUE(SignalState() == before) << kind;
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
  }
}

TEST(Probe, AnotherThreadsFaultGoesToThePreviousHandler) {
  for (bool informed : {true, false}) {
    Pages page(1, PROT_NONE);
    faulting = &page;
    fault_address = nullptr;
    informed ? handle_crashes(repair_with_information) : handle_crashes(repair);
    handling_thread = pthread_self();
    while_probing = [&] { fault_on_another_thread(page.begin() + 5); };
    EXPECT_EQ(write_probe(at(0), 4), kFault) << "the probe itself goes on";
    EXPECT_FALSE(pthread_equal(handling_thread, pthread_self()));
    EXPECT_EQ(fault_address, informed ? page.begin() + 5 : nullptr);
  }
}

TEST(Probe, AnotherThreadsFaultEndsTheProcessWithoutAHandler) {
  for (auto disposition : {SIG_DFL, SIG_IGN})
    EXPECT_EQ(test::in_child([=] {
                Pages page(1, PROT_NONE);
                signal(SIGSEGV, disposition);
                while_probing = [&] { fault_on_another_thread(page.begin()); };
                write_probe(at(0), 4);
                return 0;
              }),
              1000 + SIGSEGV);
  std::string buffer(65536, '\0');
  uint32_t count, code;
  xtr_fetch(buffer.data(), 65536, 1, &count, &code);
  EXPECT_THAT(buffer, HasSubstr("XPCE___F:    xpce_handler: About to Restore old Handler/Re-raise signal 11\n"));
}

TEST(Probe, CountsAsPassedWhenItCannotBeMade) {
  struct {
    int* service;
    const char* pointer_line;
    const char* string_line;
  } const cases[] = {
      {&failing_mutex_lock, "", ""},
      {&failing_unblock, "XPCECK_F:   xpce_internal_ckptr: pthread_sigmask returned 22, >Invalid argument<\n",
       "XPCECK_F:   xpce_ckstr: pthread_sigmask returned 22, >Invalid argument<\n"},
      {&failing_install, "XPCECK_F: sigaction returned 0 with errno of 22\n",
       "XPCECK_F: sigaction returned 0 with errno of 22\n"}};
  for (const auto& failing : cases) {
    uint32_t length;
    *failing.service = EINVAL;
    EXPECT_EQ(write_probe(at(0), 4), kWritable);
    EXPECT_EQ(read_probe(at(0), 4), kReadable);
    EXPECT_THAT(traced(), HasSubstr(failing.pointer_line));
    EXPECT_EQ(string_probe(at(0), &length), kWritable);
    EXPECT_EQ(length, kUnwritten);
    EXPECT_THAT(traced(), HasSubstr(failing.string_line));
    *failing.service = 0;
    EXPECT_EQ(write_probe(at(0), 4), kFault) << "something was left behind";
  }
}

TEST(Probe, ReportsWhatItCouldNotPutBack) {
  struct sigaction before;
  sigaction(SIGSEGV, nullptr, &before);
  uint32_t length;
  failing_setmask = EINVAL;
  EXPECT_EQ(write_probe(at(0), 4), kFault);
  EXPECT_EQ(string_probe("text", &length), Codes(0, kUnwritten));
  EXPECT_THAT(traced(), HasSubstr("XPCECK_F:   xpce_internal_ckptr: pthread_sigmask(old_mask) returned 22, >Inv"));
  EXPECT_THAT(traced(), HasSubstr("XPCECK_F:   xpce_ckstr: pthread_sigmask(old_mask) returned 22, >Invalid"));
  failing_setmask = 0;
  failing_restore = EPERM;
  EXPECT_EQ(write_probe(at(0), 4), kFault);
  EXPECT_THAT(traced(), HasSubstr("XPCECK_F: restore sigaction returned 2 with errno of 1\n"));
  failing_restore = 0;
  sigaction(SIGSEGV, &before, nullptr);
}

TEST(Probe, PassesForTheHolderOfTheMutex) {
  uint32_t length;
  ASSERT_EQ(pthread_mutex_lock(&xtr_mutex_sem), 0);
  EXPECT_EQ(write_probe(at(0), 4), kWritable);
  EXPECT_EQ(string_probe(at(0), &length), kWritable);
  EXPECT_EQ(length, kUnwritten);
  EXPECT_EQ(pthread_mutex_unlock(&xtr_mutex_sem), 0) << "a probe gave the mutex away";
  EXPECT_EQ(write_probe(at(0), 4), kFault);
}

TEST(Probe, IsRightOnManyThreadsAtOnce) {
  Pages pages(1, PROT_READ);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&] {
      uint32_t word = 0, length;
      for (int i = 0; i < 500; ++i) {
        ASSERT_EQ(write_probe(&word, 4), kWritable);
        ASSERT_EQ(write_probe(pages.begin(), kPage), kFault);
        ASSERT_EQ(read_probe(pages.begin(), kPage), kReadable);
        ASSERT_EQ(string_probe(pages.end(), &length), Codes(2, 2));
      }
    });
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
