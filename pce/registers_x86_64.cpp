#ifdef __x86_64__
#include "pce/registers.h"

namespace plov::pce {
namespace {

// Four segment registers of 16 bits share one slot. The kernel saves no ES and DS: the process runs with one and the
// same, so the handler's own are those of the fault.
unsigned segment(const greg_t* r, int place) {
  return static_cast<uint16_t>(static_cast<uint64_t>(r[REG_CSGSFS]) >> (16 * place));
}

unsigned own_es() {
  uint16_t value;
  asm("mov %%es, %0" : "=r"(value));
  return value;
}

unsigned own_ds() {
  uint16_t value;
  asm("mov %%ds, %0" : "=r"(value));
  return value;
}

}  // namespace

Registers registers_of(const ucontext_t& context) {
  const greg_t* const r = context.uc_mcontext.gregs;
  return {static_cast<uintptr_t>(r[REG_RIP]), static_cast<uintptr_t>(r[REG_RSP]), static_cast<uintptr_t>(r[REG_RBP])};
}

void set_registers(ucontext_t& context, const Registers& registers) {
  greg_t* const r = context.uc_mcontext.gregs;
  r[REG_RIP] = static_cast<greg_t>(registers.instruction_pointer);
  r[REG_RSP] = static_cast<greg_t>(registers.stack_pointer);
  r[REG_RBP] = static_cast<greg_t>(registers.frame_pointer);
}

void add_registers(ReportText& text, const ucontext_t& context) {
  const greg_t* const g = context.uc_mcontext.gregs;
  const auto r = [g](int which) { return static_cast<unsigned long>(g[which]); };
  text.add('D', "GS:%4.4x      FS:%4.4x      ES:%4.4x    DS:%4.4x", segment(g, 1), segment(g, 2), own_es(), own_ds());
  text.add('D', "RDI:%16.16lX RSI:%16.16lX RAX:%16.16lX", r(REG_RDI), r(REG_RSI), r(REG_RAX));
  text.add('D', "RBX:%16.16lX RCX:%16.16lX RDX:%16.16lX", r(REG_RBX), r(REG_RCX), r(REG_RDX));
  text.add('D', "RBP:%16.16lX RIP:%16.16lX RSP:%16.16lX", r(REG_RBP), r(REG_RIP), r(REG_RSP));
  text.add('D', "R8:%16.16lX R9:%16.16lX R10:%16.16lX", r(REG_R8), r(REG_R9), r(REG_R10));
  text.add('D', "R11:%16.16lX R12:%16.16lX R13:%16.16lX", r(REG_R11), r(REG_R12), r(REG_R13));
  text.add('D', "R14:%16.16lX R15:%16.16lX", r(REG_R14), r(REG_R15));
  text.add('D', "EFLG:%8.8lX", r(REG_EFL));
  text.add('D', "CS:%4.4X      SS:%4.4X", segment(g, 0), segment(g, 3));
}

}  // namespace plov::pce
#endif
