#include "log/maintain/slot.h"

namespace plov::log {

constexpr time_t kDay = 86400;

void SlotChoice::see(int slot, time_t written) {
  if (oldest_ >= 0 && oldest_time_ <= written) {
    if (second_ < 0 || second_time_ > written) {
      second_ = slot;
      second_time_ = written;
    }
    return;
  }
  second_ = oldest_;
  second_time_ = oldest_time_;
  oldest_ = slot;
  oldest_time_ = written;
}

int SlotChoice::choose(time_t now) const {
  // With one slot there is no second.
  return oldest_time_ > now - kDay && second_ >= 0 ? second_ : oldest_;
}

}  // namespace plov::log
