#include "pce/frame_walk.h"

#include <string.h>

#include <algorithm>

#include "frame/caller_memory.h"
#include "frame/probe.h"
#include "pce_wire.h"
#include "xtr.h"

namespace plov::pce {
namespace {

constexpr int kMostFrames = 10;
constexpr size_t kMostBytes = 512;  // of a frame
static_assert(sizeof(pce_wire_frame_table) + kMostFrames * kMostBytes <= PCE_STACK_AREA_SIZE);

// What the called function has saved, and where it returns to.
struct Pair {
  uintptr_t frame_pointer;
  uintptr_t return_address;
};

void* pointer(uintptr_t address) {
  return reinterpret_cast<void*>(address);
}

bool take(void* to, uintptr_t from, size_t size) {
  return frame::take_from_caller(to, pointer(from), size);
}

// A probe tests no more than four bytes, at the end: the pair is probed at both of its ends.
bool take_pair(uintptr_t address, Pair& pair) {
  uint32_t scratch;
  return frame::probe(pointer(address), 4, frame::Access::write, &scratch) == 0 && take(&pair, address, sizeof pair);
}

}  // namespace

void add_first_bytes(ReportText& text, const Registers& registers) {
  const uintptr_t esp = registers.stack_pointer, ebp = registers.frame_pointer;
  if (esp >= ebp) {
    xtr_trace("XPCE___F: Esp(%8.8lx) should be < Ebp(%8.8lx).", static_cast<unsigned long>(esp),
              static_cast<unsigned long>(ebp));
    return;
  }
  uint8_t bytes[kHexBytes];
  const size_t size = std::min<size_t>(ebp - esp, sizeof bytes);
  if (!take(bytes, esp, size)) {
    xtr_trace("XPCE_1_F: ESP and EBP are %lX and %lX.", static_cast<unsigned long>(esp),
              static_cast<unsigned long>(ebp));
    xtr_trace("XPCE_1_F: Check pointer failed at %p for %d bytes.", pointer(esp), static_cast<int>(size));
    return;
  }
  text.add('D', "Stack from Esp to Ebp: %s.", HexGroups(bytes, size).text);
}

uint32_t add_frames(ReportText& text, uint8_t* stack, const Registers& registers) {
  uintptr_t address = registers.stack_pointer;
  size_t end = sizeof(pce_wire_frame_table);
  pce_wire_frame_table table = {};
  Pair pair;
  for (int step = 1; step <= kMostFrames && take_pair(address, pair); ++step) {
    text.add('D',
             PLOV_ILP32 ? "%d.At %p is Ebp/Eip pair: %8.8lx/%8.8lx." : "%d.At %p is Ebp/Eip pair: %16.16lx/%16.16lx.",
             step, pointer(address), static_cast<unsigned long>(pair.frame_pointer),
             static_cast<unsigned long>(pair.return_address));
    // Without a sign: a frame pointer that lies below is as far above.
    const size_t size = std::min<size_t>(pair.frame_pointer - address, kMostBytes);
    size_t copied = 0;
    if (take(stack + end, address, size)) {
      table.offset[step - 1] = static_cast<uint16_t>(end);
      copied = size;
    } else {
      memset(stack + end, 0, size);  // what was copied before the hole
      xtr_trace("XPCE_2_F: Stack frame and previous stack frame = %lX and %lX.", static_cast<unsigned long>(address),
                static_cast<unsigned long>(pair.frame_pointer));
      xtr_trace("XPCE_2_F: Check pointer failed at %p for %d bytes", pointer(address), static_cast<int>(size));
    }
    const HexGroups hex(stack + end, copied);
    text.add('D', "  Stk:%s", copied > 0 ? hex.text : " No stack data.");
    end += copied;
    address = pair.frame_pointer;
  }
  memcpy(stack, &table, sizeof table);
  return static_cast<uint32_t>(end);
}

}  // namespace plov::pce
