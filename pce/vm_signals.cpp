#include "pce/vm_signals.h"

#include <dlfcn.h>
#include <link.h>
#include <stdint.h>
#include <string.h>
#include <ucontext.h>

#include <atomic>

#include "pce/signals.h"

namespace plov::pce {
namespace {

// What the VM exports for programs whose handlers stand in front of its own. 0: none of its business.
using Judge = int (*)(int signal, siginfo_t* information, void* context, int abort_if_unrecognized);
std::atomic<Judge> judge;

bool is_fault(int signal) {
  return signal == SIGSEGV || signal == SIGBUS || signal == SIGFPE || signal == SIGILL;
}

// What a closed connection and a full file raise. A VM drops them, but not before it has asked whoever came before it.
bool is_dropped(int signal) {
  return signal == SIGPIPE || signal == SIGXFSZ;
}

// A fault that another process has sent is for the process, not for the VM's checks.
bool may_be_vms(int signal, const siginfo_t& information) {
  return is_fault(signal) ? information.si_code > 0 : is_dropped(signal);
}

// Stands in a signal's si_errno, which has no use of its own, while the judge has it. The judge asks whoever handled
// the signal before the VM, and that may be us: of a fault when it is none of the VM's, of what it drops beforehand. A
// mark outside the signal would outlive it, for the judge may also jump away.
constexpr int kAsked = 0x4A564D;

bool is_vm(const dl_phdr_info& library) {
  const char* const name = strrchr(library.dlpi_name, '/');
  return name && strcmp(name, "/libjvm.so") == 0;
}

bool holds(const dl_phdr_info& library, uintptr_t address) {
  for (int i = 0; i < library.dlpi_phnum; ++i) {
    const auto& segment = library.dlpi_phdr[i];
    if (segment.p_type == PT_LOAD && address - (library.dlpi_addr + segment.p_vaddr) < segment.p_memsz) return true;
  }
  return false;
}

}  // namespace

bool is_vms_handler(const struct sigaction& action) {
  auto address = reinterpret_cast<uintptr_t>(action.sa_sigaction);
  return dl_iterate_phdr(
             [](dl_phdr_info* library, size_t, void* handler) {
               return is_vm(*library) && holds(*library, *static_cast<uintptr_t*>(handler)) ? 1 : 0;
             },
             &address) != 0;
}

void find_vm() {
  void* const library = dlopen("libjvm.so", RTLD_LAZY | RTLD_NOLOAD);
  judge = library ? reinterpret_cast<Judge>(dlsym(library, "JVM_handle_linux_signal")) : nullptr;
  if (library) dlclose(library);  // a VM stays
}

bool vm_took(int signal, siginfo_t* information, void* context) {
  // A VM that has come since asks us from its own handler.
  if (is_dropped(signal)) {
    struct sigaction current = {};
    sigaction(signal, nullptr, &current);
    if (!is_our_handler(current) && is_vms_handler(current)) return true;
  }
  const Judge judges = judge;
  if (!judges || !information || !context) return false;
  if (information->si_errno == kAsked) {
    information->si_errno = 0;
    return is_dropped(signal);
  }
  if (!may_be_vms(signal, *information) || !displaces_handler(signal)) return false;
  information->si_errno = kAsked;
  if (judges(signal, information, context, 0) != 0) return true;
  information->si_errno = 0;
  // It has unblocked faults: they stay blocked, as in every handler, until the signal is given back.
  sigset_t mask = static_cast<const ucontext_t*>(context)->uc_sigmask;
  sigaddset(&mask, signal);
  pthread_sigmask(SIG_SETMASK, &mask, nullptr);
  return false;
}

}  // namespace plov::pce
