#include "log/retrieve/entry.h"

#include <string.h>

#include <algorithm>

#include "frame/memory.h"
#include "log/retrieve/log_header.h"

namespace plov::log {
namespace {

static_assert(sizeof(xlog_log_entry) <= XLOG_ENTRY_ALLOCATION);

constexpr uint16_t kFlagsHandedOut = XLOG_LOG_PROBLEM_ANALYSIS | XLOG_LOG_DISPLAY_AS_ERROR;

// A zeroed block of the debug allocator's.
template <class T>
T* allocate(size_t size) {
  void* memory = PLOV_MALLOC(size);
  return memory ? static_cast<T*>(memset(memory, 0, size)) : nullptr;
}

// Gives the entry its own copy of `size` bytes, the first of which come from `data` and the others are 0.
bool copy_data(const uint8_t* data, uint32_t available, uint32_t size, xlog_block_entry* block) {
  block->length = size;
  if (size == 0) return true;
  block->data = static_cast<uint8_t*>(PLOV_MALLOC(size));
  if (!block->data) return false;
  const uint32_t copied = std::min(available, size);
  memcpy(block->data, data, copied);
  memset(block->data + copied, 0, size - copied);
  return true;
}

// The bytes read become the entry's data in the way that the log's flags demand.
Failure fill_block(uint16_t flags, const Bytes& read, Expander& expander, xlog_block_entry* block) {
  const bool stored_form = flags & XLOG_LOG_STORED_FORM;
  if (block->block_id == XLOG_MODIFY_BLOCK_ID || !(stored_form || (flags & XLOG_LOG_ENCODED_HINT)))
    return copy_data(read.data, read.size, read.size, block) ? Failure{}
                                                             : no_memory_for_result(XLOG_RETRIEVE_NO_RAW_MEMORY);
  // A log with the hint alone is not expanded, yet what it hands out comes from the last expansion of the same call,
  // with the length read here. Readers of such logs depend on the length; do not repair.
  uint32_t length = read.size;
  if (stored_form) {
    if (const uint32_t code = expander.expand(read.data, read.size)) return no_memory_for_result(code);
    length = std::min(expander.size(), XLOG_MAX_BLOCK_SIZE);
  }
  return copy_data(expander.data(), expander.size(), length, block)
             ? Failure{}
             : no_memory_for_result(XLOG_RETRIEVE_NO_EXPANDED_MEMORY);
}

}  // namespace

void free_entry(xlog_log_entry* entry) {
  xlog_free_mem(entry->blocks);
  PLOV_FREE(entry);
}

void free_entries(xlog_log_entry* entries) {
  while (entries) {
    xlog_log_entry* next = entries->next;
    free_entry(entries);
    entries = next;
  }
}

Failure build_entry(const xlog_log_header& header, const xlog_timestamp& timestamp, uint32_t offset, uint32_t limit,
                    Window& window, Expander& expander, OwnedEntry* entry) {
  const xlog_log_info& info = header.log_info;
  entry->reset(allocate<xlog_log_entry>(XLOG_ENTRY_ALLOCATION));
  if (!*entry) return no_memory_for_result(XLOG_RETRIEVE_NO_ENTRY_MEMORY);
  (*entry)->eventid = info.eventid;
  (*entry)->timestamp = timestamp;
  memcpy((*entry)->event_name, info.event_name, sizeof info.event_name);
  (*entry)->flags = info.log_flags & kFlagsHandedOut;

  xlog_block_entry** tail = &(*entry)->blocks;
  uint64_t position = first_block(header, offset);
  for (unsigned i = 0; i < info.num_blocks; ++i) {
    const xlog_block_info& stored = header.block_info[i];
    const uint64_t end = position + stored.block_size;
    if (end > limit) break;
    xlog_block_entry* block = allocate<xlog_block_entry>(sizeof(xlog_block_entry));
    if (!block) return no_memory_for_result(XLOG_RETRIEVE_NO_BLOCK_MEMORY);
    block->block_id = stored.block_id;
    *tail = block;
    tail = &block->next;

    const uint32_t wanted = std::min<uint32_t>(stored.block_size, XLOG_MAX_BLOCK_SIZE);
    const Bytes read = window.block(position, wanted, uint64_t{offset} + info.total_log_size);
    if (read.error) return damaged(XLOG_RETRIEVE_BLOCK_ERROR, static_cast<uint32_t>(read.error));
    if (read.size < wanted) return damaged(XLOG_RETRIEVE_BLOCK_SHORT, read.size);
    if (Failure failure = fill_block(info.log_flags, read, expander, block)) return failure;
    position = end;
  }
  return {};
}

void keep_blocks(xlog_log_entry* entry, const BlockIds& ids) {
  xlog_block_entry* kept = nullptr;
  for (xlog_block_entry* block = entry->blocks; block;) {
    xlog_block_entry* next = block->next;
    const bool keep = ids[block->block_id];
    block->next = keep ? kept : nullptr;
    if (keep)
      kept = block;
    else
      xlog_free_mem(block);
    block = next;
  }
  entry->blocks = kept;
}

}  // namespace plov::log
