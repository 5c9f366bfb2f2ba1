// The report's text, line by line.
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/resource.h>
#include <ucontext.h>
#include <unistd.h>

#include "pce/frame_walk.h"
#include "pce/process_state.h"
#include "pce/registers.h"
#include "pce/report_text.h"
#include "pce_wire.h"
#include "xpce.h"
#include "xtr.h"

namespace plov::pce {
namespace {

const char* description(int signal) {
  switch (signal) {
    case SIGABRT:
      return "ABORT function called for this process";
    case SIGBUS:
      return "Process violated hardware constraints";
    case SIGFPE:
      return "Arithmetic exception - overflow, underflow, divide by 0";
    case SIGILL:
      return "Illegal hardware instruction";
    case SIGQUIT:
      return "Process received QUIT signal";
    case SIGPIPE:
      return "Process received broken pipe signal";
    case SIGSEGV:
      return "Invalid memory access";
    case SIGTERM:
      return "Process received TERM signal";
    case SIGXCPU:
      return "Process has exceeded its CPU limit";
    case SIGXFSZ:
      return "Process has exceeded its file size limit";
    default:
      return "Signal not recognized";
  }
}

// The program's path: the process's command line up to its first NUL, cut to what the field holds.
bool read_program_name(xpce_process_information& process) {
  char path[32];
  snprintf(path, sizeof path, "/proc/%d/cmdline", process.pid);
  const int file = open(path, O_RDONLY | O_CLOEXEC);
  if (file < 0) {
    strncpy(process.name, "file unknown (1)", sizeof process.name);
    return false;
  }
  const bool good = read(file, process.name, sizeof process.name) >= 0;
  close(file);
  if (!good) strncpy(process.name, "file unknown(2)", sizeof process.name);
  return good;
}

unsigned long stack_limit() {
  struct rlimit limit = {};
  getrlimit(RLIMIT_STACK, &limit);
  return static_cast<unsigned long>(limit.rlim_cur);
}

void add_heading(ReportText& text, xpce_process_information& process, int signal, const siginfo_t* information,
                 const ucontext_t* context, const char* tag) {
  text.add('F', "Exception Number: %d", signal);
  if (read_program_name(process))
    text.add('F', "Program name is >%.*s<", static_cast<int>(sizeof process.name), process.name);
  text.add('F', "User Thread tag: >%s<", tag);
  text.add('F', "%s", description(signal));
  if (signal == SIGSEGV && information) text.add('F', "Address of invalid memory access is %p", information->si_addr);
  text.add('F', "Stack: Base=%p  Size=%4.8lx", context ? context->uc_stack.ss_sp : nullptr, stack_limit());
  text.add('F', "PPID=%X  PID=%X  TIB=%lX", static_cast<unsigned>(process.parent_pid),
           static_cast<unsigned>(process.pid), static_cast<unsigned long>(process.thread));
}

}  // namespace
}  // namespace plov::pce

void xpce_convert_data(char* text, uint32_t* text_length, uint8_t* stack, uint32_t* stack_length,
                       xpce_process_information* process, int32_t signal, const siginfo_t* information,
                       const void* context, const char* tag) {
  using namespace plov::pce;
  xtr_trace("XPCE___T: -> xpce_convert_data");
  const auto* const interrupted = static_cast<const ucontext_t*>(context);
  ReportText lines(text, PCE_REPORT_TEXT_SIZE);
  add_heading(lines, *process, signal, information, interrupted, tag);
  *stack_length = 0;
  if (interrupted) {
    const Registers registers = registers_of(*interrupted);
    add_registers(lines, *interrupted);
    add_first_bytes(lines, registers);
    *stack_length = add_frames(lines, stack, registers);
  }
  *text_length = lines.length();
  // The core file that the signal may leave is looked for there.
  if (coreDir[0] != '\0' && chdir(coreDir) != 0) xtr_trace("XPCE___F: chdir to >%s< failed", coreDir);
  xtr_trace("XPCE___T: <-xpce_convert_data");
}
