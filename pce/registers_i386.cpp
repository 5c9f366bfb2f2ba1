#ifdef __i386__
#include "pce/registers.h"

namespace plov::pce {
namespace {

// Segment registers have 16 bits; the upper half of their slots is whatever was there.
unsigned segment(const greg_t* r, int which) {
  return static_cast<uint16_t>(r[which]);
}

}  // namespace

Registers registers_of(const ucontext_t& context) {
  const greg_t* const r = context.uc_mcontext.gregs;
  return {static_cast<uintptr_t>(r[REG_EIP]), static_cast<uintptr_t>(r[REG_ESP]), static_cast<uintptr_t>(r[REG_EBP])};
}

void set_registers(ucontext_t& context, const Registers& registers) {
  greg_t* const r = context.uc_mcontext.gregs;
  r[REG_EIP] = static_cast<greg_t>(registers.instruction_pointer);
  r[REG_ESP] = static_cast<greg_t>(registers.stack_pointer);
  r[REG_EBP] = static_cast<greg_t>(registers.frame_pointer);
}

void add_registers(ReportText& text, const ucontext_t& context) {
  const greg_t* const r = context.uc_mcontext.gregs;
  text.add('D', "GS:%4.4x      FS:%4.4x      ES:%4.4x    DS:%4.4x", segment(r, REG_GS), segment(r, REG_FS),
           segment(r, REG_ES), segment(r, REG_DS));
  text.add('D', "EDI:%8.8X ESI:%8.8X EAX:%8.8X", r[REG_EDI], r[REG_ESI], r[REG_EAX]);
  text.add('D', "EBX:%8.8X ECX:%8.8X EDX:%8.8X", r[REG_EBX], r[REG_ECX], r[REG_EDX]);
  text.add('D', "EBP:%8.8X EIP:%8.8X ESP:%8.8X", r[REG_EBP], r[REG_EIP], r[REG_ESP]);
  text.add('D', "EFLG:%8.8X", r[REG_EFL]);
  text.add('D', "CS:%4.4X      SS:%4.4X", segment(r, REG_CS), segment(r, REG_SS));
}

}  // namespace plov::pce
#endif
