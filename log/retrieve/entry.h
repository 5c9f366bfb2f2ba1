// The records that a retrieval hands to its caller: built from a log in the file, thinned, released.
#ifndef PLOV_LOG_RETRIEVE_ENTRY_H
#define PLOV_LOG_RETRIEVE_ENTRY_H

#include <bitset>
#include <memory>

#include "log/retrieve/expand.h"
#include "log/retrieve/failure.h"
#include "log/retrieve/window.h"

namespace plov::log {

using BlockIds = std::bitset<256>;

void free_entry(xlog_log_entry* entry);
void free_entries(xlog_log_entry* entries);

struct FreeEntry {
  void operator()(xlog_log_entry* entry) const { free_entry(entry); }
};
using OwnedEntry = std::unique_ptr<xlog_log_entry, FreeEntry>;

// Reads and expands the blocks of the log at `offset` into a new record, up to the first block that would pass `limit`.
Failure build_entry(const xlog_log_header& header, const xlog_timestamp& timestamp, uint32_t offset, uint32_t limit,
                    Window& window, Expander& expander, OwnedEntry* entry);

// Keeps the blocks with these ids. They come out in reverse order: callers of block-id lists expect that.
void keep_blocks(xlog_log_entry* entry, const BlockIds& ids);

}  // namespace plov::log

#endif
