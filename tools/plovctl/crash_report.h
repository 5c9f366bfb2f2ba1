// The exception report of a process, taken apart again: what a microcode entry keeps of it as text becomes values.
#ifndef PLOV_CTL_CRASH_REPORT_H
#define PLOV_CTL_CRASH_REPORT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "events.h"

namespace plov::ctl {

struct StackFrame {
  std::string address;  // where on the stack, "0xffffcde0"
  std::string base;     // the words there: saved frame pointer,
  std::string target;   // return address
  std::string bytes;    // "08CEFFFF 33625556", "" when there are none
};

// One line of the symbolic backtrace.
struct CallSite {
  std::string module;
  std::string function;  // demangled, with its offset; "" when the module does not tell
  std::string address;   // "0x565561f9"
};

// Numbers stay in the report's notation. What the report does not have is empty.
struct CrashReport {
  uint16_t report_id = 0;
  uint32_t signal = 0;
  std::string program, tag, description, address, stack, thread;
  std::optional<uint32_t> pid, parent_pid;
  std::vector<std::pair<std::string, std::string>> registers;
  std::vector<StackFrame> frames;
  std::vector<CallSite> backtrace;  // from the handler down
  std::vector<std::string> trace;   // of the process, oldest first
  std::vector<std::string> others;  // lines of the text that are none of these

  const CallSite* fault() const;  // where the signal struck: the site whose address the instruction pointer has
};

// Event name, class and type of such entries.
inline constexpr char kCrashName[] = "PCERROR";
inline constexpr uint8_t kCrashClass = 0xE4, kCrashType = 0x3D;

// Nothing for other events.
std::optional<CrashReport> crash_report_of(const Event& event);

// The lines of a report's text, each ended by a NUL, into the fields.
void read_report_text(std::string_view text, CrashReport& report);
CallSite read_call_site(std::string_view line);

std::string signal_name(uint32_t signal);              // "SIGSEGV", "signal 99"
const char* crashed_process_type(uint16_t report_id);  // "temporary process", ...; "" for an unknown id

}  // namespace plov::ctl

#endif
