// Which of the rotating compressed copies is written next. Pure.
#ifndef PLOV_LOG_MAINTAIN_SLOT_H
#define PLOV_LOG_MAINTAIN_SLOT_H

#include <stdint.h>
#include <time.h>

namespace plov::log {

inline constexpr char kSlotDigits[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
inline constexpr int kMaxSlots = sizeof kSlotDigits - 1;

// The copies' times in slot order, up to the first slot without a copy. The oldest and the second oldest are remembered
// on the way.
class SlotChoice {
 public:
  void see(int slot, time_t written);

  // Once every slot has been seen: the oldest; but while even that one is younger than a day, the second oldest, so
  // that a burst of events does not take the last days' history slot by slot. -1 when no slot was seen.
  int choose(time_t now) const;

 private:
  time_t oldest_time_ = -1, second_time_ = -1;
  int oldest_ = -1, second_ = -1;
};

}  // namespace plov::log

#endif
