#include "crash_print.h"

#include "escape.h"
#include "hex.h"

namespace plov::ctl {
namespace {

constexpr size_t kTraceLines = 20;
constexpr size_t kRegistersInLine = 4;

void print_field(const char* name, const std::string& value) {
  if (!value.empty()) print("  " + pad(name, 12) + escape(value) + "\n");
}

void print_heading(const std::string& text) {
  print("  " + paint(text, Colour::dim) + "\n");
}

std::string site_text(const CallSite& site) {
  if (site.function.empty()) return site.module + "  " + site.address;
  return site.function + "  in " + site.module + "  " + site.address;
}

std::string process_text(const CrashReport& report) {
  std::string text = report.pid ? std::to_string(*report.pid) : "";
  if (report.parent_pid) text += ", parent " + std::to_string(*report.parent_pid);
  if (!report.thread.empty()) text += ", thread " + report.thread;
  const std::string type = crashed_process_type(report.report_id);
  return text + (type.empty() ? "" : ", " + type) + ", report " + hex(report.report_id, 3);
}

void print_registers(const CrashReport& report) {
  if (report.registers.empty()) return;
  print_heading("registers");
  for (size_t i = 0; i < report.registers.size(); i += kRegistersInLine) {
    std::string line = "   ";
    for (size_t k = i; k < std::min(i + kRegistersInLine, report.registers.size()); ++k)
      line += " " + pad(report.registers[k].first, 4) + " " +
              pad(report.registers[k].second, report.registers[k].second.size() > 8 ? 16 : 8) + " ";
    print(line.substr(0, line.find_last_not_of(' ') + 1) + "\n");
  }
}

void print_frames(const CrashReport& report) {
  if (report.frames.empty()) return;
  print_heading("stack frames: place, frame pointer, return address, first bytes");
  for (size_t i = 0; i < report.frames.size(); ++i) {
    const StackFrame& frame = report.frames[i];
    print("   " + pad(std::to_string(i + 1), 3) +
          escape(frame.address + "  " + frame.base + "  " + frame.target +
                 (frame.bytes.empty() ? "" : "  " + frame.bytes)) +
          "\n");
  }
}

void print_backtrace(const CrashReport& report) {
  if (report.backtrace.empty()) return;
  print_heading("backtrace, from the handler down");
  const CallSite* const struck = report.fault();
  for (const CallSite& site : report.backtrace) {
    const bool fault = &site == struck;
    print(std::string(fault ? "  > " : "    ") + paint(escape(site_text(site)), fault ? Colour::red : Colour::plain) +
          "\n");
  }
}

// The lines that the crash handler has added itself tell what the report tells.
size_t lines_before_handler(const std::vector<std::string>& trace) {
  for (size_t i = trace.size(); i > 0; --i)
    if (trace[i - 1].find("exception handler running with signal") != std::string::npos) return i - 1;
  return trace.size();
}

void print_trace(const CrashReport& report) {
  const size_t end = lines_before_handler(report.trace);
  if (end == 0) return;
  const size_t first = end > kTraceLines ? end - kTraceLines : 0;
  print_heading("trace until the signal, the newest " + std::to_string(end - first) + " of " + counted(end, "line"));
  for (size_t i = first; i < end; ++i) print("    " + escape(report.trace[i]) + "\n");
}

}  // namespace

std::string crash_summary(const CrashReport& report) {
  return signal_name(report.signal) + (report.program.empty() ? "" : " in " + report.program) +
         (report.pid ? "[" + std::to_string(*report.pid) + "]" : "") +
         (report.description.empty() ? "" : ": " + report.description) +
         (report.address.empty() ? "" : " at " + report.address);
}

void print_crash(const CrashReport& report, const std::string& time) {
  print(paint(time, Colour::dim) + "  " +
        paint(signal_name(report.signal) + " (" + std::to_string(report.signal) + ")", Colour::red) + "  " +
        escape(report.description + (report.address.empty() ? "" : " at " + report.address)) + "\n");
  print_field("program", report.program);
  print_field("process", process_text(report));
  print_field("thread tag", report.tag);
  if (const CallSite* const fault = report.fault()) print_field("struck at", site_text(*fault));
  print_field("stack", report.stack);
  print_registers(report);
  for (const std::string& line : report.others) print("    " + escape(line) + "\n");
  print_frames(report);
  print_backtrace(report);
  print_trace(report);
  print("\n");
}

Json crash_json(const CrashReport& report) {
  Json json = {{"signal", report.signal},
               {"signal_name", signal_name(report.signal)},
               {"report_id", report.report_id},
               {"process_type", crashed_process_type(report.report_id)},
               {"program", report.program},
               {"tag", report.tag},
               {"description", report.description},
               {"address", report.address},
               {"pid", report.pid ? Json(*report.pid) : Json()},
               {"parent_pid", report.parent_pid ? Json(*report.parent_pid) : Json()},
               {"thread", report.thread},
               {"registers", Json::object()},
               {"frames", Json::array()},
               {"struck_at", report.fault() ? Json(report.fault()->function) : Json()},
               {"backtrace", Json::array()},
               {"other_lines", report.others}};
  for (const auto& [name, value] : report.registers) json["registers"][name] = value;
  for (const StackFrame& frame : report.frames)
    json["frames"].push_back({{"address", frame.address},
                              {"frame_pointer", frame.base},
                              {"return_address", frame.target},
                              {"bytes", frame.bytes}});
  for (const CallSite& site : report.backtrace)
    json["backtrace"].push_back({{"module", site.module}, {"function", site.function}, {"address", site.address}});
  return json;
}

}  // namespace plov::ctl
