// The interrupted thread's stack in the report: its first bytes, and frame after frame with a copy of each. The stack
// may be in any state, so every byte is probed and copied under a guard. Signal-safe.
#ifndef PLOV_PCE_FRAME_WALK_H
#define PLOV_PCE_FRAME_WALK_H

#include "pce/registers.h"
#include "pce/report_text.h"

namespace plov::pce {

void add_first_bytes(ReportText& text, const Registers& registers);

// `stack` has PCE_STACK_AREA_SIZE bytes, zeroed. Returns how many of them are used.
uint32_t add_frames(ReportText& text, uint8_t* stack, const Registers& registers);

}  // namespace plov::pce

#endif
