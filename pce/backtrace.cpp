#include "pce/backtrace.h"

#include <dlfcn.h>
#include <errno.h>
#include <execinfo.h>
#include <fcntl.h>
#include <pthread.h>
#include <setjmp.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

#include "frame/caller_memory.h"
#include "frame/trace_line.h"
#include "pce/registers.h"
#include "xtr.h"

namespace plov::pce {
namespace {

using frame::pce_trace_line;

constexpr int kMostAddresses = 50;

std::atomic<pthread_t> gl_prot_tid;
sigjmp_buf gl_btrace_jmpenv;
volatile uint32_t gl_btrace_trap;

// The one collection's own, not on the stack: a fault in it must find what to give back.
ucontext_t* interrupted;
char directory[4096];
char file_name[sizeof directory + 64];
volatile int file = -1;

const char* reason(int error) {
  const char* const text = strerrordesc_np(error);  // unlike strerror neither locks nor translates
  return text ? text : "Unknown error";
}

void trace_failure(const char* step, int error) {
  pce_trace_line('F', "   collect_btrace: ERROR, file %s failed with error %u", step, static_cast<unsigned>(error));
  pce_trace_line('F', "                 : >%s<", reason(error));
}

// A file of our own: one that waits under this name is an earlier process's, or a trap for us.
bool create_file() {
  if (pce_sig_tempdir(directory, sizeof directory) != 0) return false;
  snprintf(file_name, sizeof file_name, "%sBacktrace-%4.4lX-%4.4lX.XPCE", directory,
           static_cast<unsigned long>(xtr_getpid()), static_cast<unsigned long>(xtr_gettid()));
  pce_trace_line('F', "   collect_btrace: Using temp filename >%s<", file_name);
  constexpr int kFlags = O_RDWR | O_CREAT | O_TRUNC | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  file = open(file_name, kFlags, 0600);
  if (file < 0 && errno == EEXIST && unlink(file_name) == 0) file = open(file_name, kFlags, 0600);
  if (file < 0) trace_failure("create", errno);
  return file >= 0;
}

void remove_file() {
  if (file < 0) return;
  if (close(file) != 0) trace_failure("close", errno);
  file = -1;
  if (unlink(file_name) != 0) trace_failure("erase/unlink", errno);
}

bool in_module(uintptr_t address) {
  Dl_info info;
  return dladdr(reinterpret_cast<void*>(address), &info) != 0;
}

// The interrupted registers as the unwinder can follow them, for the time that it works. It may fault over what a crash
// leaves, and then all that it has found is lost.
class Mended {
 public:
  void begin() {
    if (!interrupted) return;
    original_ = registers_of(*interrupted);
    Registers registers = original_;
    end_the_chain(registers);
    return_from_nowhere(registers);
    changed_ = true;
    set_registers(*interrupted, registers);
  }
  void end() {
    if (changed_) set_registers(*interrupted, original_);
    changed_ = false;
  }

 private:
  static bool read(uintptr_t address, void* to, size_t size) {
    return frame::copy_from_caller(to, reinterpret_cast<void*>(address), size);
  }

  // A frame pointer that leads nowhere: to an empty frame instead, which ends the chain. Where it is no frame pointer
  // but a value of the function's own, nobody looks.
  static void end_the_chain(Registers& registers) {
    static uintptr_t empty[64];
    uintptr_t pair[2];
    if (!read(registers.frame_pointer, pair, sizeof pair))
      registers.frame_pointer = reinterpret_cast<uintptr_t>(&empty[32]);
  }

  // A call to where there is no code: it has returned, and its caller is the function to be named. The address is one
  // inside the call, for behind it another function may begin.
  static void return_from_nowhere(Registers& registers) {
    uintptr_t return_address;
    if (in_module(registers.instruction_pointer) ||
        !read(registers.stack_pointer, &return_address, sizeof return_address) || !in_module(return_address))
      return;
    registers.instruction_pointer = return_address - 1;
    registers.stack_pointer += sizeof return_address;
  }

  Registers original_ = {};
  volatile bool changed_ = false;
};
Mended mended;

// Naming the frames takes the loader's lock, whose holder may itself wait for ever for what this thread had in hand.
// When the time is over, and every second from then on, the way out is that of a fault.
class Watch {
 public:
  void begin() {
    sigevent event = {};
    event.sigev_notify = SIGEV_THREAD_ID;
    event.sigev_signo = SIGSEGV;
    event._sigev_un._tid = gettid();
    running_ = timer_create(CLOCK_MONOTONIC, &event, &timer_) == 0;
    const itimerspec times = {{1, 0}, {kTime, 0}};
    if (running_) timer_settime(timer_, 0, &times, nullptr);
  }
  void end() {
    if (running_) timer_delete(timer_);
    running_ = false;
  }

 private:
  static constexpr time_t kTime = 10;  // seconds
  timer_t timer_;
  volatile bool running_ = false;
};
Watch watch;

// Writes the frames into the file and reads them back; false when that failed.
bool write_and_read(char (&text)[PCE_BACKTRACE_SIZE]) {
  void* addresses[kMostAddresses];
  mended.begin();
  const int count = backtrace(addresses, kMostAddresses);
  mended.end();
  backtrace_symbols_fd(addresses, count, file);
  ssize_t size = -1;
  if (lseek(file, 0, SEEK_SET) == 0) {
    do size = read(file, text, sizeof text);
    while (size < 0 && errno == EINTR);
  }
  if (size < 0)
    trace_failure("read", errno);
  else
    pce_trace_line('F', "   collect_btrace: Backtrace size is %u", static_cast<unsigned>(size));
  return size > 0;
}

void set_text(char (&text)[PCE_BACKTRACE_SIZE], const char* words) {
  memset(text, 0, sizeof text);
  memcpy(text, words, strlen(words));
}

int32_t collect_btrace(pce_call_record&, char (&text)[PCE_BACKTRACE_SIZE], uint32_t& length) {
  pce_trace_line('D', "-> collect_btrace:");
  const bool good = create_file() && write_and_read(text);
  remove_file();
  if (!good) set_text(text, "Backtrace Unavailable");
  length = static_cast<uint32_t>(strnlen(text, sizeof text));
  pce_trace_line('D', "<- collect_btrace:");
  return 0;
}

void collect_unblocked(pce_call_record& record, char (&text)[PCE_BACKTRACE_SIZE], uint32_t& length) {
  // A fault while its signal is blocked, as it is in its handler, would end the process at once.
  sigset_t set, before;
  sigemptyset(&set);
  for (int fault : {SIGSEGV, SIGBUS}) sigaddset(&set, fault);
  if (const int rc = pthread_sigmask(SIG_UNBLOCK, &set, &before); rc != 0) {
    pce_trace_line('F', "   prot_collect_btrace: Error! pthread_sigmask returned %u, >%s<", static_cast<unsigned>(rc),
                   reason(rc));
    set_text(text, "Backtrace Unavailable due to pthread_sigmask() failure");
    return;
  }
  watch.begin();
  collect_btrace(record, text, length);
  watch.end();
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace

void set_interrupted(void* context) {
  interrupted = static_cast<ucontext_t*>(context);
}

int32_t prot_collect_btrace(pce_call_record& record, char (&text)[PCE_BACKTRACE_SIZE], uint32_t& length) {
  pce_trace_line('D', "-> prot_collect_btrace:");
  gl_btrace_trap = 0;
  if (sigsetjmp(gl_btrace_jmpenv, 1) == 0) {
    gl_prot_tid = pthread_self();
    collect_unblocked(record, text, length);
    gl_prot_tid = pthread_t{};
  } else {
    gl_prot_tid = pthread_t{};
    pce_trace_line('F', "   prot_collect_btrace: Looks like we trapped. Setting no backtrace data available.");
    watch.end();
    mended.end();
    remove_file();
    set_text(text, "Backtrace Unavailable due to trap in collect_btrace()");
  }
  length = static_cast<uint32_t>(strnlen(text, sizeof text));
  pce_trace_line('D', "<- prot_collect_btrace:");
  return 0;
}

bool collecting_backtrace() {
  const pthread_t collector = gl_prot_tid;
  return collector != pthread_t{} && pthread_equal(collector, pthread_self());
}

void return_to_collector() {
  gl_btrace_trap = 1;
  siglongjmp(gl_btrace_jmpenv, 1);
}

}  // namespace plov::pce
