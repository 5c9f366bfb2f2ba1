#include "log/event_copy.h"

#include <string.h>

#include "frame/caller_memory.h"
#include "frame/probe.h"

namespace plov::log {
namespace {

// The library's own blocks mean nothing to Java.
bool java_has_it(uint8_t block_id) {
  return block_id != XLOG_UTCOFFSET_BLOCK_ID && block_id != XLOG_RESERVED_F4_BLOCK_ID;
}

// The block of one node at `*place`; false when it cannot be had.
bool copy_block(const xlog_data_node& node, EventBlock** place) {
  // Before the allocation: a size that is none should not ask for gigabytes.
  uint32_t scratch;
  if (node.data_size != 0 && frame::probe(node.data_ptr, node.data_size, frame::Access::read, &scratch) != 0)
    return false;
  if (!java_has_it(node.block_id)) return true;
  auto* const block = static_cast<EventBlock*>(PLOV_MALLOC(sizeof(EventBlock) + size_t{node.data_size}));
  if (!block) return false;
  *block = {nullptr, node.data_size, node.block_id};
  *place = block;
  return frame::copy_from_caller(block + 1, node.data_ptr, node.data_size);
}

}  // namespace

void FreeEvent::operator()(EventCopy* event) const {
  while (EventBlock* const block = event->blocks) {
    event->blocks = block->next;
    PLOV_FREE(block);
  }
  PLOV_FREE(event);
}

OwnedEvent copy_event(const xlog_log_request& request) {
  OwnedEvent event(static_cast<EventCopy*>(PLOV_MALLOC(sizeof(EventCopy))));
  if (!event) return nullptr;
  *event = {request.eventid, {}, nullptr};
  memcpy(event->name, request.event_name, XLOG_NAME_SIZE);

  EventBlock** place = &event->blocks;
  uint32_t count = 0;
  xlog_data_node node;
  for (const xlog_data_node* next = request.data; next; next = node.next) {
    if (++count > XLOG_MAX_BLOCKS || !frame::take_from_caller(&node, next, sizeof node) || !copy_block(node, place))
      return nullptr;
    if (*place) place = &(*place)->next;
  }
  return event;
}

}  // namespace plov::log
