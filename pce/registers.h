// The interrupted thread's registers, as each word size has them. Pure.
#ifndef PLOV_PCE_REGISTERS_H
#define PLOV_PCE_REGISTERS_H

#include <stdint.h>
#include <ucontext.h>

#include "pce/report_text.h"

namespace plov::pce {

struct Registers {
  uintptr_t instruction_pointer;
  uintptr_t stack_pointer;
  uintptr_t frame_pointer;
};
Registers registers_of(const ucontext_t& context);

// The register lines of the report.
void add_registers(ReportText& text, const ucontext_t& context);

void set_registers(ucontext_t& context, const Registers& registers);

}  // namespace plov::pce

#endif
