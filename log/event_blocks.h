// The blocks of a system event while it is put together: each new one goes to the front of the chain, as the message
// side reads them.
#ifndef PLOV_LOG_EVENT_BLOCKS_H
#define PLOV_LOG_EVENT_BLOCKS_H

#include <stdint.h>

#include <utility>

#include "frame/memory.h"
#include "xlog.h"

namespace plov::log {

class EventBlocks {
 public:
  // One variable more than a log can hold, so that the recorder sees them and refuses; extra data, count and tower.
  static constexpr uint32_t kMaxVariables = XLOG_MAX_BLOCKS;
  static constexpr uint32_t kMaxBlocks = kMaxVariables + 3;

  // Takes the data; a null one, for which there was no memory, fails.
  bool push_front(uint8_t id, frame::Owned<uint8_t> data, uint32_t size) {
    if (!data || count_ == kMaxBlocks) return false;
    nodes_[count_] = {size, id, data.get(), count_ > 0 ? &nodes_[count_ - 1] : nullptr};
    data_[count_++] = std::move(data);
    return true;
  }

  xlog_data_node* chain() { return count_ > 0 ? &nodes_[count_ - 1] : nullptr; }

 private:
  xlog_data_node nodes_[kMaxBlocks];
  frame::Owned<uint8_t> data_[kMaxBlocks];
  uint32_t count_ = 0;
};

// Zeroed, from the debug allocator; null when there is no memory.
frame::Owned<uint8_t> zeroed(uint32_t size);

// Puts the tower block, which names the event to the Java side by its text and its user number, to the front when there
// is a text (not the caller's, but a copy of it). False: no memory.
bool build_tower_data(uint16_t user, const char* text, EventBlocks* blocks);

}  // namespace plov::log

#endif
