#include "log/retrieve/patterns.h"

#include <algorithm>

#include "frame/caller_memory.h"
#include "frame/memory.h"
#include "log/retrieve/cycle_watch.h"

namespace plov::log {
namespace {

bool probe_node(frame::Call& call, const xlog_pattern* node, xlog_pattern* copy) {
  if (!call.writable(node, sizeof *node, XLOG_RETRIEVE_BAD_PATTERN)) return false;
  if (!frame::copy_from_caller(copy, node, sizeof *copy)) return call.refuse(XLOG_RETRIEVE_BAD_PATTERN);
  return copy->length == 0 || (call.readable(copy->data, copy->length, XLOG_RETRIEVE_BAD_PATTERN_DATA) &&
                               call.readable(copy->mask, copy->length, XLOG_RETRIEVE_BAD_PATTERN_MASK));
}

// A node of our own, with the compared bytes of data and mask behind it.
xlog_pattern* copy_pattern(frame::Call& call, const xlog_pattern& caller) {
  const uint32_t compared = std::min(caller.length, XLOG_MAX_BLOCK_SIZE);
  void* memory = PLOV_MALLOC(sizeof(xlog_pattern) + 2 * compared);
  if (!memory) {
    call.fail(frame::kSystemFailure, XLOG_RETRIEVE_NO_BUFFER);
    return nullptr;
  }
  xlog_pattern* own = static_cast<xlog_pattern*>(memory);
  uint8_t* bytes = reinterpret_cast<uint8_t*>(own + 1);
  *own = {compared, caller.block_id, bytes, bytes + compared, nullptr};
  if (!frame::copy_from_caller(bytes, caller.data, compared))
    call.refuse(XLOG_RETRIEVE_BAD_PATTERN_DATA);
  else if (!frame::copy_from_caller(bytes + compared, caller.mask, compared))
    call.refuse(XLOG_RETRIEVE_BAD_PATTERN_MASK);
  return own;
}

}  // namespace

Patterns::~Patterns() {
  while (first_) {
    xlog_pattern* next = first_->next;
    PLOV_FREE(first_);
    first_ = next;
  }
}

bool Patterns::take(frame::Call& call, const xlog_pattern* chain) {
  CycleWatch watch;
  xlog_pattern** tail = &first_;
  xlog_pattern caller;
  for (const xlog_pattern* node = chain; node; node = caller.next) {
    if (watch.passed_before(node)) return call.refuse(XLOG_RETRIEVE_BAD_PATTERN);
    if (!probe_node(call, node, &caller)) return false;
    *tail = copy_pattern(call, caller);
    if (!call.ok()) return false;
    tail = &(*tail)->next;
  }
  return true;
}

}  // namespace plov::log
