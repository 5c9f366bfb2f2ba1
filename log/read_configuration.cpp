#include <errno.h>
#include <string.h>

#include "frame/memory.h"
#include "log/configuration.h"
#include "xdfc.h"
#include "xtr.h"

namespace plov::log {
namespace {

constexpr char kFile[] = "wexoinit.trm";
constexpr uint32_t kClearedSize = 512;  // cleared before reading, so the buffer is never smaller
constexpr int32_t kRecordMemoryResult = 24;

int32_t failed(xlog_err_interface* err, uint16_t id, uint16_t level, uint32_t reason, int32_t result) {
  err->error_id = id;
  err->error_level = level;
  err->error_reason = reason;
  return result;
}

// Reads the whole file into the buffer.
int32_t read_whole(xlog_err_interface* err, char* buffer, uint32_t size) {
  FILE* stream = nullptr;
  uint32_t code = 0;
  int32_t result = xdfc_search_file_open2(kFile, "r", &stream, &code);
  if (result != 0 || !stream)
    return failed(err, XLOG_ERR_CONFIG_OPEN, XLOG_LEVEL_REPORT, code, result != 0 ? result : 2);
  int32_t done = 0;
  // The end of the file is no failure here: the count tells whether everything came.
  result = xdfc_read(buffer, 1, size, stream, &done, &code);
  if (result != 0 && code != XDFC_END_OF_FILE)
    failed(err, XLOG_ERR_CONFIG_READ, XLOG_LEVEL_REPORT, code, result);
  else if (static_cast<uint32_t>(done) < size)
    result = failed(err, XLOG_ERR_CONFIG_SHORT, XLOG_LEVEL_REPORT, static_cast<uint32_t>(done), 1);
  else
    result = 0;
  const int32_t closed = xdfc_close_file(stream, &code);
  if (closed != 0 && result == 0) result = failed(err, XLOG_ERR_CONFIG_CLOSE, XLOG_LEVEL_RECORD, code, closed);
  return result;
}

}  // namespace

int32_t read_configuration(xlog_err_interface* err, bool want_classes, xlog_configuration* configuration) {
  xtr_trace("XLOG   F: -> xlog_process_init");
  *configuration = {};
  uint32_t size = 0, code = 0;
  int32_t result = xdfc_query_file_size(kFile, &size, &code);
  if (result != 0) {
    result = failed(err, XLOG_ERR_CONFIG_SIZE, XLOG_LEVEL_REPORT, code, result);
  } else {
    const uint32_t allocated = size < kClearedSize ? kClearedSize : size;
    frame::Owned<char> buffer(static_cast<char*>(PLOV_MALLOC(allocated)));
    if (!buffer) {
      result = failed(err, XLOG_ERR_CONFIG_MEMORY, XLOG_LEVEL_DAMAGED, static_cast<uint32_t>(errno), 1);
    } else {
      memset(buffer.get(), 0, kClearedSize);
      result = read_whole(err, buffer.get(), size);
      if (result == 0) {
        const uint16_t failure = parse_configuration(buffer.get(), size, want_classes, configuration);
        if (failure != 0)
          result = failed(err, failure, XLOG_LEVEL_DAMAGED, static_cast<uint32_t>(errno), kRecordMemoryResult);
      }
    }
  }
  xtr_trace("XLOG   F: <- xlog_process_init");
  return result;
}

}  // namespace plov::log

int32_t xlog_process_init(xlog_err_interface* err_interface, int32_t want_classes, xlog_configuration* configuration) {
  const int32_t result = plov::log::read_configuration(err_interface, want_classes != 0, configuration);
  if (err_interface->error_level != XLOG_LEVEL_NONE) xlog_error_handler(err_interface);
  return result;
}
