// SIGSEGV in tests: who handles it, and whether everything is as before.
#ifndef PLOV_TESTS_SIGNALS_H
#define PLOV_TESTS_SIGNALS_H

#include <pthread.h>
#include <signal.h>

#include <thread>

#include "support/pages.h"

namespace test {

// The calling thread's mask and the process's SIGSEGV action.
struct SignalState {
  SignalState() {
    sigaction(SIGSEGV, nullptr, &action);
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  }
  bool operator==(const SignalState& other) const {
    bool same = action.sa_sigaction == other.action.sa_sigaction && action.sa_flags == other.action.sa_flags;
    for (int signal = 1; signal < 32; ++signal)
      same = same && sigismember(&mask, signal) == sigismember(&other.mask, signal) &&
             sigismember(&action.sa_mask, signal) == sigismember(&other.action.sa_mask, signal);
    return same;
  }
  struct sigaction action;
  sigset_t mask;
};

inline void handle_crashes(void (*handler)(int), int flags = 0) {
  struct sigaction action = {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  sigaddset(&action.sa_mask, SIGUSR1);
  sigaction(SIGSEGV, &action, nullptr);
}

inline void handle_crashes(void (*handler)(int, siginfo_t*, void*), int flags = 0) {
  handle_crashes(reinterpret_cast<void (*)(int)>(reinterpret_cast<void*>(handler)), flags | SA_SIGINFO);
}

// A thread that reads a closed page, to be opened by the handler; without one the process ends.
__attribute__((no_sanitize("address", "thread"))) inline void fault_on_another_thread(volatile uint8_t* page) {
  std::thread([=] { (void)*page; }).join();
}

inline Pages* faulting;            // what the two handlers open
inline pthread_t handling_thread;  // who ran them
inline void* fault_address;        // what the second was told

inline void repair(int) {
  handling_thread = pthread_self();
  faulting->protect(0, PROT_READ);
}

inline void repair_with_information(int signal, siginfo_t* information, void*) {
  fault_address = information->si_addr;
  repair(signal);
}

}  // namespace test

#endif
