// Releasing what a retrieval handed out. The chain has been in the caller's hands: it is looked through before anything
// is freed, so that a fault stops the release at a known place and a circle does not run for ever.
#include "frame/call.h"
#include "frame/memory.h"
#include "frame/probe.h"
#include "log/retrieve/cycle_watch.h"
#include "xlog.h"

namespace plov::log {
namespace {

constexpr unsigned kSlice = 1024;  // nodes looked at under one probe

// A walk over the records, each before its block entries. What is known after a fault is volatile.
struct Inspection {
  const xlog_log_entry* volatile entry =
      nullptr;  // the next one to look at, or the one whose blocks are being looked at
  const xlog_block_entry* volatile block = nullptr;
  volatile bool in_blocks = false;
  volatile bool circle = false;
  volatile uint32_t good = 0;  // records and block entries that may be touched
  CycleWatch entries, blocks;

  bool ended() const { return circle || (!in_blocks && !entry); }
};

PLOV_TOUCHES_FOREIGN_MEMORY void look_at_next(Inspection& at) {
  if (!at.in_blocks) {
    const xlog_log_entry* entry = at.entry;
    frame::touch_end(entry, XLOG_ENTRY_ALLOCATION);
    at.circle = at.entries.passed_before(entry);
    at.block = entry->blocks;
    at.blocks = CycleWatch();
    at.good = at.good + 1;
    at.in_blocks = !at.circle;
  } else if (at.block) {
    const xlog_block_entry* block = at.block;
    frame::touch_end(block, sizeof *block);
    at.circle = at.blocks.passed_before(block);
    at.block = block->next;
    at.good = at.good + 1;
  } else {
    at.entry = at.entry->next;
    at.in_blocks = false;
  }
}

void look_at_slice(void* inspection) {
  Inspection& at = *static_cast<Inspection*>(inspection);
  for (unsigned i = 0; i < kSlice && !at.ended(); ++i) look_at_next(at);
}

// 0 when the whole chain is good; `good` then counts its nodes, else those before the break.
uint32_t inspect(const xlog_log_entry* chain, uint32_t* good) {
  Inspection at;
  at.entry = chain;
  bool whole = true;
  while (whole && !at.ended()) whole = frame::probe_walk(look_at_slice, &at);
  *good = at.circle ? 0 : at.good;
  if (whole && !at.circle) return 0;
  return at.in_blocks ? XLOG_FREE_BAD_BLOCK_ENTRY : XLOG_FREE_BAD_ENTRY;
}

// What is freed leaves the chain first, so that the chain holds exactly what is left.
void free_good(xlog_retrieve_block* result, uint32_t good) {
  while (good > 0) {
    xlog_log_entry* entry = result->result;
    for (--good; good > 0 && entry->blocks; --good) {
      xlog_block_entry* block = entry->blocks;
      entry->blocks = block->next;
      PLOV_FREE(block->data);
      PLOV_FREE(block);
    }
    if (entry->blocks) return;
    result->result = entry->next;
    PLOV_FREE(entry);
  }
}

}  // namespace
}  // namespace plov::log

int32_t xlog_free(xlog_retrieve_block* block, uint32_t* comprc) {
  plov::frame::Call call("xlog_free", "XLOG   T: -> xlog_free", "XLOG   T: <- xlog_free", comprc);
  if (call.writable(block, sizeof *block, XLOG_FREE_BAD_BLOCK)) {
    uint32_t good;
    const uint32_t code = plov::log::inspect(block->result, &good);
    plov::log::free_good(block, good);
    if (code != 0) call.refuse(code);
  }
  return call.leave();
}

void xlog_free_mem(xlog_block_entry* blocks) {
  while (blocks) {
    xlog_block_entry* next = blocks->next;
    PLOV_FREE(blocks->data);
    PLOV_FREE(blocks);
    blocks = next;
  }
}
