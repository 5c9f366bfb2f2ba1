// Making room in a full log, and finishing what a dead process began.
#include <time.h>

#include "log/maintain/failed.h"
#include "log/maintain/make_room.h"
#include "log/maintain/stage.h"
#include "xtr.h"

namespace plov::log {
namespace {

// Where the deletion has not put the event there already.
int32_t append_logcomp(xlog_file_header* header, xlog_err_interface* err) {
  FILE* const stream = err->file_handle;
  const Logcomp logcomp(*header, static_cast<uint32_t>(time(nullptr)));
  const uint8_t* const bytes = logcomp.bytes();
  const uint32_t blocks = logcomp.size() - logcomp.header_size();
  xtr_trace("XLOG   D: writing log header");
  const Transfer head = write_at(stream, header->file_size, bytes, logcomp.header_size());
  if (!was_written(err, head, XLOG_ERR_SEEK_LOG_INFO, XLOG_ERR_WRITE_LOG_INFO_HEADER)) return head.stream_error ? 2 : 8;
  xtr_trace("XLOG   D: writing system event data");
  if (!was_written(err, write_here(stream, bytes + logcomp.header_size(), blocks), XLOG_ERR_WRITE_LOG_INFO_DATA,
                   XLOG_ERR_ROOM_LAST_BLOCK_SHORT) ||
      !was_written(err, flush(stream), XLOG_ERR_WRITE_LOG_INFO_DATA, XLOG_ERR_ROOM_LAST_BLOCK_SHORT))
    return 2;
  logcomp.enter(header);
  xtr_trace("XLOG   D: writing file header");
  if (!was_written(err, write_at(stream, 0, header, sizeof *header), XLOG_ERR_ROOM_FILE_HEADER_ERROR,
                   XLOG_ERR_ROOM_FILE_HEADER_SHORT) ||
      !was_written(err, flush(stream), XLOG_ERR_ROOM_FILE_HEADER_ERROR, XLOG_ERR_ROOM_FILE_HEADER_SHORT))
    return 2;
  return 0;
}

int32_t compress(xlog_file_header* header, xlog_err_interface* err) {
  xlog_stage_result amounts = {};
  LoadedFile file;
  if (!(header->file_flags & XLOG_FILE_PRUNE_IN_PROGRESS)) {
    if (header->file_flags & XLOG_FILE_SINGLE_STAGE) {
      amounts.bytes_to_delete[0] = static_cast<int32_t>(header->max_file_size * XLOG_SIZE_UNIT / 3);
    } else {
      char copy_name[XLOG_COPY_NAME_SIZE];
      const int32_t staged = stage_one(*header, err, &amounts, copy_name, &file);
      // A stage that failed by itself leaves its failure in the error record, for the caller to find.
      if (staged != 0) return staged == kStageFailed ? 0 : staged;
    }
  }
  bool logcomp_there = false;
  int32_t result = delete_logs(err, header, &amounts, &logcomp_there, file);
  if (result != 0) return result;
  if (!logcomp_there) result = append_logcomp(header, err);
  return result == 0 || result == 8 ? result : xlog_error_handler(err);
}

}  // namespace
}  // namespace plov::log

int32_t xlog_compress_file(xlog_file_header* file_header, xlog_err_interface* err_interface) {
  xtr_trace("XLOG   F: -> xlog_compress_file");
  err_interface->error_id = 0;
  const int32_t result = plov::log::compress(file_header, err_interface);
  xtr_trace("XLOG   F: <- xlog_compress_file");
  return result;
}
