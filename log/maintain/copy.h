// A copy of the main log in the next slot, before room is made in it.
#ifndef PLOV_LOG_MAINTAIN_COPY_H
#define PLOV_LOG_MAINTAIN_COPY_H

#include <stdint.h>

namespace plov::log {

// The slot to be written next: -1 when the configuration has none.
int choose_slot(uint16_t slots);

// "wexocom" + digit + ".log".
struct SlotName {
  explicit SlotName(int slot);
  char text[16];
};

// Copies the main log, which is closed, and gives the copy `size_word` as its first two bytes. A step that fails is
// traced and reported to the system log; none stops the making of room. A copy is made under an interim name, so that
// the one that it replaces is there until it is complete.
void copy_main_log(const char* slot_name, uint16_t size_word);

}  // namespace plov::log

#endif
