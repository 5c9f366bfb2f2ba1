// Keeping the second log file small. Its users pause for nobody's log lock, so none is taken: the file has a lock of
// its own, which opening it takes.
#include <errno.h>
#include <string.h>
#include <time.h>

#include "log/stream.h"
#include "xlog.h"
#include "xtr.h"

namespace plov::log {
namespace {

struct PLOV_PACKED BrelecEvent {
  xlog_log_info info;
  xlog_block_info block_info;
  uint8_t data[2];
};
static_assert(sizeof(BrelecEvent) == 42);
constexpr size_t kHeaderSize = offsetof(BrelecEvent, data);
static_assert(kHeaderSize == 40);

constexpr xlog_eventid kEventid = {0, 0, 733};

class E4Prune {
 public:
  E4Prune() { memcpy(err_.target_session, "e4", sizeof "e4"); }

  int32_t run() {
    int32_t sysrc = xlog_open_file(&err_);
    if (sysrc != 0) {
      xtr_trace("XLOG   F: xlog_open_file failed, sysrc = %d", sysrc);
      return sysrc;
    }
    sysrc = prune();
    const int32_t closed = err_.file_handle ? xlog_close_file(&err_) : 0;
    return sysrc != 0 ? sysrc : closed;
  }

 private:
  int32_t prune() {
    const Transfer read = read_at(err_.file_handle, 0, &header_, sizeof header_);
    if (!read.ok) {
      xtr_trace("XLOG   F: fread failed, bytes_read = %d", read.stream_error ? 0 : read.reason);
      return 2;
    }
    xtr_trace("XLOG   D: file_header->file_size = %d", header_.file_size);
    const uint32_t limit = header_.max_file_size * XLOG_SIZE_UNIT / 5;
    if (header_.file_size > limit) {
      const int32_t sysrc = delete_down_to(limit);
      if (sysrc != 0) {
        xtr_trace("XLOG   F: xlog_delete_logs failed, sysrc = %d", sysrc);
        return sysrc;
      }
    }
    return write_event() ? 0 : 2;
  }

  // A result 0 with a failure in the error record, or without a stream, is one that nobody has handled.
  int32_t delete_down_to(uint32_t limit) {
    xlog_stage_result amounts = {{static_cast<int32_t>(header_.file_size - limit), 0, 0, 0}};
    int32_t sysrc = xlog_delete_logs(&err_, &header_, &amounts);
    if (sysrc == 0 && (err_.error_level != XLOG_LEVEL_NONE || !err_.file_handle)) sysrc = 2;
    xtr_trace("XLOG   D: after xlog_delete_logs, file_size = %d, sysrc  = %d", header_.file_size, sysrc);
    return sysrc;
  }

  // The log first, out of the buffer, then the header that makes it visible.
  bool write_event() {
    constexpr int32_t sysrc = 2;
    FILE* const stream = err_.file_handle;
    const uint32_t offset = header_.file_size;
    BrelecEvent event = {};
    event.info.total_log_size = sizeof event;
    event.info.eventid = kEventid;
    event.info.timestamp.seconds = static_cast<uint32_t>(time(nullptr));
    memcpy(event.info.event_name, "BRELECLOG", sizeof "BRELECLOG");
    event.info.prev_log_offset = header_.last_log_offset;
    event.info.prev_class_log_offset = header_.class_last_log[kEventid.classes];
    event.info.num_blocks = 1;
    event.block_info = {XLOG_SYSTEM_EVENT_BLOCK_ID, sizeof event.data};

    const auto seek = [stream](uint32_t to) { return fseeko(stream, static_cast<off_t>(to), SEEK_SET) == 0; };
    Transfer written;
    if (!seek(offset)) {
      xtr_trace("XLOG   F: log header fseek failed, sysrc = %d, errno = %s", sysrc, strerror(errno));
      return false;
    }
    if (written = write_here(stream, &event, kHeaderSize); !written.ok) {
      xtr_trace("XLOG   F: log header fwrite failed, bytes_written = %d, errno = %s",
                written.stream_error ? 0 : written.reason, strerror(errno));
      return false;
    }
    if (!seek(offset + kHeaderSize)) {
      xtr_trace("XLOG   F: data fseek failed, sysrc = %d, errno = %s", sysrc, strerror(errno));
      return false;
    }
    if (written = write_here(stream, event.data, sizeof event.data); written.ok) written = flush(stream);
    if (!written.ok) {
      xtr_trace("XLOG   F: data fwrite failed, sysrc = %d, errno = %s", sysrc, strerror(errno));
      return false;
    }
    header_.last_log_offset = header_.class_last_log[kEventid.classes] = offset;
    header_.file_size = offset + static_cast<uint32_t>(sizeof event);
    if (!seek(0)) {
      xtr_trace("XLOG   F: header fseek failed, sysrc = %d, errno = %s", sysrc, strerror(errno));
      return false;
    }
    if (written = write_here(stream, &header_, sizeof header_); written.ok) written = flush(stream);
    if (!written.ok)
      xtr_trace("XLOG   F: data fwrite failed, bytes_written = %d, errno = %s",
                written.stream_error ? 0 : written.reason, strerror(errno));
    return written.ok;
  }

  xlog_err_interface err_ = {};
  xlog_file_header header_ = {};
};

}  // namespace
}  // namespace plov::log

int32_t xlog_e4_prune(void) {
  xtr_trace("XLOG   T: -> xlog_e4_prune");
  const int32_t sysrc = plov::log::E4Prune().run();
  xtr_trace("XLOG   T: <- xlog_e4_prune");
  return sysrc;
}

int32_t Java_com_zanth_vemra_base_brellogs_WriteData_jniPruneE4Log(void* /*environment*/, void* /*object*/) {
  return xlog_e4_prune();
}
