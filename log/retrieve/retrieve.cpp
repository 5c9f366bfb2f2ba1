// Reading logs back: the exported call, its probes, and the log operation around the walk.
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "frame/call.h"
#include "frame/caller_memory.h"
#include "frame/memory.h"
#include "log/operation.h"
#include "log/retrieve/patterns.h"
#include "log/retrieve/walk.h"

namespace plov::log {
namespace {

// Holds the largest block.
constexpr uint32_t kReadSize = XLOG_MAX_BLOCK_SIZE;

bool take_block_ids(frame::Call& call, const uint8_t* list, uint32_t count, BlockIds* ids) {
  if (!call.readable(list, count, XLOG_RETRIEVE_BAD_ID_LIST)) return false;
  uint8_t piece[4096];
  for (uint32_t done = 0, size; done < count; done += size) {
    size = std::min<uint32_t>(count - done, sizeof piece);
    if (!frame::copy_from_caller(piece, list + done, size)) return call.refuse(XLOG_RETRIEVE_BAD_ID_LIST);
    for (uint32_t i = 0; i < size; ++i) ids->set(piece[i]);
  }
  return true;
}

Failure open_file(Operation& operation) {
  uint32_t semaphore_code = 0;
  if (!operation.lock(&semaphore_code)) return {2, XLOG_RETRIEVE_NO_LOCK, XLOG_LEVEL_REPORT, semaphore_code};
  const int32_t result = operation.open();
  const xlog_err_interface& err = operation.err;
  if (result == 0 && err.error_level == XLOG_LEVEL_NONE && err.file_handle) return {};
  return {result ? result : 2, err.error_id, err.error_level, err.error_reason};
}

// xlog_open_file leaves the stream at the file's start with nothing pending, so its descriptor shows the whole file.
Failure read_file_header(int fd, xlog_file_header* file_header) {
  uint8_t bytes[sizeof *file_header];
  const Bytes read = Window(fd, bytes, sizeof bytes).block(0, sizeof bytes, sizeof bytes);
  if (read.error) return damaged(XLOG_RETRIEVE_FILE_HEADER_ERROR, static_cast<uint32_t>(read.error));
  if (read.size < sizeof bytes) return damaged(XLOG_RETRIEVE_FILE_HEADER_SHORT, read.size);
  memcpy(file_header, bytes, sizeof bytes);
  return {};
}

Failure read_logs(Operation& operation, const Criteria& criteria, Found* found) {
  const frame::Owned<uint8_t> read_buffer(static_cast<uint8_t*>(PLOV_MALLOC(kReadSize)));
  if (!read_buffer) return {2, XLOG_RETRIEVE_NO_BUFFER, XLOG_LEVEL_REPORT, static_cast<uint32_t>(errno)};
  const frame::Owned<uint8_t> expansion(static_cast<uint8_t*>(PLOV_MALLOC(kExpansionSize)));
  // No reason code for this one: callers take "2 and 0" for it.
  if (!expansion) return {2, 0, XLOG_LEVEL_NONE, 0};

  if (Failure failure = open_file(operation)) return failure;
  const int fd = fileno(operation.err.file_handle);
  xlog_file_header file_header;
  if (Failure failure = read_file_header(fd, &file_header)) return failure;
  Window window(fd, read_buffer.get(), kReadSize);
  Expander expander(expansion.get());
  return collect_logs(criteria, file_header, window, expander, found);
}

int32_t report(const Failure& failure, Operation& operation) {
  if (failure.level == XLOG_LEVEL_NONE || failure.sysrc == 8) return failure.sysrc;
  operation.err.error_id = static_cast<uint16_t>(failure.comprc);
  operation.err.error_reason = failure.reason;
  operation.err.error_level = failure.level;
  return xlog_error_handler(&operation.err);
}

bool hand_out(xlog_retrieve_block* block, const Found& found) {
  return frame::copy_to_caller(&block->count, &found.count, sizeof found.count) &&
         frame::copy_to_caller(&block->result, &found.entries, sizeof(void*));
}

// Our copy of the request: the caller's cannot change under us.
bool take_request(frame::Call& call, xlog_retrieve_block* block, xlog_retrieve_block* copy) {
  return call.writable(block, sizeof *block, XLOG_RETRIEVE_BAD_BLOCK) &&
         ((frame::copy_from_caller(copy, block, sizeof *copy) && hand_out(block, {})) ||
          call.refuse(XLOG_RETRIEVE_BAD_BLOCK));
}

Found retrieve(frame::Call& call, const xlog_retrieve_block& request, const Criteria& criteria) {
  Operation operation(request.target_session, sizeof request.target_session);
  Found found;
  if (const Failure failure = read_logs(operation, criteria, &found)) {
    free_entries(found.entries);
    found = {};
    call.set_comprc(failure.comprc);
    call.set_sysrc(static_cast<uint32_t>(report(failure, operation)));
  }
  // What was read is whole even when the close fails, so that shows in the reason code alone.
  if (operation.end() != 0) call.set_comprc(operation.err.error_id);
  return found;
}

void retrieve(frame::Call& call, xlog_retrieve_block* block) {
  xlog_retrieve_block request;
  Patterns patterns;
  if (!take_request(call, block, &request) || !patterns.take(call, request.patterns)) return;
  Criteria criteria = {request.options,  request.eventid, request.start,         request.end,
                       patterns.first(), request.maximum, request.id_count == 0, {}};
  if (request.id_count != 0 && !take_block_ids(call, request.id_list, request.id_count, &criteria.block_ids)) return;
  const Found found = retrieve(call, request, criteria);
  if (hand_out(block, found)) return;
  free_entries(found.entries);
  call.refuse(XLOG_RETRIEVE_BAD_BLOCK);
}

}  // namespace
}  // namespace plov::log

int32_t xlog_retrieve(xlog_retrieve_block* block, uint32_t* comprc) {
  plov::frame::Call call("xlog_retrieve", "XLOG   T: -> xlog_retrieve", "XLOG   T: <- xlog_retrieve", comprc);
  plov::log::retrieve(call, block);
  return call.leave();
}
