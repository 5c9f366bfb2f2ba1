// The first bytes of a new log file.
#include <errno.h>
#include <string.h>
#include <time.h>

#include "log/configuration.h"
#include "log/utc_offset.h"
#include "xlog.h"
#include "xtr.h"

namespace plov::log {
namespace {

constexpr uint16_t kInfoBlocks = 2;
constexpr uint32_t kInfoHeaderSize = sizeof(xlog_log_info) + kInfoBlocks * sizeof(xlog_block_info);

xlog_file_header new_file_header(const xlog_configuration& configuration, int32_t kind) {
  xlog_file_header header = {};
  header.max_file_size = kind == XLOG_KIND_MAIN         ? configuration.main_file_size
                         : kind == XLOG_KIND_E4         ? configuration.e4_file_size
                         : kind == XLOG_KIND_SHORT_NAME ? configuration.short_name_file_size
                                                        : XLOG_ALT_FILE_SIZE;
  header.max_single_log_size = configuration.max_single_log_size;
  header.modify_block_size = configuration.modify_block_size;
  header.file_flags = XLOG_FILE_UTC_OFFSET | XLOG_VERSION_CONTROL_FLAG;
  header.file_size = XLOG_FILE_HEADER_SIZE;
  if (kind == XLOG_KIND_E4) {
    header.file_flags |= XLOG_FILE_SINGLE_STAGE;
  } else {
    header.last_log_offset = XLOG_FILE_HEADER_SIZE;
    header.class_last_log[0xFF] = XLOG_FILE_HEADER_SIZE;
    header.file_size += XLOG_LOG_INFO_SIZE;
  }
  return header;
}

struct PLOV_PACKED InfoHeader {
  xlog_log_info log_info;
  xlog_block_info block_info[kInfoBlocks];
};
static_assert(sizeof(InfoHeader) == kInfoHeaderSize);

InfoHeader info_header(uint32_t now) {
  InfoHeader header = {};
  header.log_info.total_log_size = XLOG_LOG_INFO_SIZE;
  header.log_info.eventid = {0xFF, 0xFF, 0};
  header.log_info.timestamp.seconds = now;
  memcpy(header.log_info.event_name, XLOG_LOG_INFO_NAME, XLOG_NAME_SIZE);
  header.log_info.log_flags = XLOG_LOG_STORED_FORM;
  header.log_info.num_blocks = kInfoBlocks;
  header.block_info[0] = {XLOG_UTCOFFSET_BLOCK_ID, sizeof(xlog_utc_block)};
  header.block_info[1] = {XLOG_LOG_INFO_BLOCK_ID, sizeof(xlog_log_info_block)};
  return header;
}
static_assert(kInfoHeaderSize + sizeof(xlog_utc_block) + sizeof(xlog_log_info_block) == XLOG_LOG_INFO_SIZE);

int32_t failed(xlog_err_interface* err, uint16_t id, uint16_t level, uint32_t reason, int32_t result) {
  err->error_id = id;
  err->error_level = level;
  err->error_reason = reason;
  return result;
}

int32_t write_log_info_log(xlog_err_interface* err) {
  FILE* stream = err->file_handle;
  const uint32_t now = static_cast<uint32_t>(time(nullptr));
  const InfoHeader header = info_header(now);
  const xlog_utc_block utc = utc_block(now);
  const xlog_log_info_block info = {XLOG_STORED_MARK, 1, 1, "pqrl"};

  xtr_trace("XLOG   D: sizeof(struct xlog_block_info) = %d", static_cast<int>(sizeof(xlog_block_info)));
  xtr_trace("XLOG   D: sizeof(struct xlog_log_info) = %d", static_cast<int>(sizeof(xlog_log_info)));
  xtr_trace("XLOG   D: log_header_size = %d", static_cast<int>(kInfoHeaderSize));
  xtr_trace("XLOG   D: log_header.block_info[0].block_size = %d", header.block_info[0].block_size);
  xtr_trace("XLOG   D: log_header.log_info.total_log_size = %d", header.log_info.total_log_size);
  xtr_trace("XLOG   D: writing log info log header");
  if (fseek(stream, XLOG_FILE_HEADER_SIZE, SEEK_SET) != 0)
    return failed(err, XLOG_ERR_SEEK_LOG_INFO, XLOG_LEVEL_DAMAGED, static_cast<uint32_t>(errno), 2);
  const size_t written = fwrite(&header, 1, sizeof header, stream);
  if (written < sizeof header)
    return failed(err, XLOG_ERR_WRITE_LOG_INFO_HEADER, XLOG_LEVEL_DAMAGED, static_cast<uint32_t>(written), 8);
  xtr_trace("XLOG   D: writing log info log data");
  // The seek back writes the buffered bytes out: a full disk shows there.
  if (fwrite(&utc, 1, sizeof utc, stream) < sizeof utc || fwrite(&info, 1, sizeof info, stream) < sizeof info ||
      fseek(stream, 0, SEEK_SET) != 0)
    return failed(err, XLOG_ERR_WRITE_LOG_INFO_DATA, XLOG_LEVEL_DAMAGED, static_cast<uint32_t>(errno), 2);
  return 0;
}

int32_t write_new_file(xlog_err_interface* err, const xlog_configuration& configuration, int32_t kind) {
  const xlog_file_header header = new_file_header(configuration, kind);
  xtr_trace("XLOG   D: writing file header with file handle of %x",
            static_cast<unsigned>(reinterpret_cast<uintptr_t>(err->file_handle)));
  if (fwrite(&header, 1, sizeof header, err->file_handle) < sizeof header || fseek(err->file_handle, 0, SEEK_SET) != 0)
    return failed(err, XLOG_ERR_WRITE_FILE_HEADER, XLOG_LEVEL_REPORT, static_cast<uint32_t>(errno), 0);
  return kind == XLOG_KIND_E4 ? 0 : write_log_info_log(err);
}

}  // namespace
}  // namespace plov::log

int32_t xlog_init_file(xlog_err_interface* err_interface, int32_t kind) {
  using namespace plov::log;
  xtr_trace("XLOG   D: -> xlog_init_file");
  xlog_configuration configuration;
  int32_t result = read_configuration(err_interface, false, &configuration);
  if (result != 0)
    xtr_trace("XLOG   F: Error found in processing wexoinit.trm file");
  else
    result = write_new_file(err_interface, configuration, kind);
  if (err_interface->error_level != XLOG_LEVEL_NONE && result != 8) result = xlog_error_handler(err_interface);
  xtr_trace("XLOG   D: <- xlog_init_file");
  return result;
}
