// A crash report as people read it, and as JSON.
#ifndef PLOV_CTL_CRASH_PRINT_H
#define PLOV_CTL_CRASH_PRINT_H

#include <string>

#include "crash_report.h"
#include "output.h"

namespace plov::ctl {

std::string crash_summary(
    const CrashReport& report);  // "SIGSEGV in /usr/bin/door[4711]: Invalid memory access at 0x10"
void print_crash(const CrashReport& report, const std::string& time);
Json crash_json(const CrashReport& report);

}  // namespace plov::ctl

#endif
