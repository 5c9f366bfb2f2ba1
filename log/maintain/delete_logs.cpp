// Deleting logs: the finished file is planned in memory, written beside the log and renamed (log/maintain/image.h).
#include <stddef.h>
#include <time.h>
#include <unistd.h>

#include "log/maintain/compaction.h"
#include "log/maintain/failed.h"
#include "log/maintain/image.h"
#include "log/maintain/make_room.h"
#include "xtr.h"

namespace plov::log {
namespace {

class Deletion {
 public:
  Deletion(xlog_err_interface* err, xlog_file_header* header)
      : err_(err), header_(header), image_(err->target_session) {}

  bool run(xlog_stage_result* amounts, bool* logcomp, LoadedFile& file) {
    const bool resumed = header_->file_flags & XLOG_FILE_PRUNE_IN_PROGRESS;
    if (resumed) {
      amounts->bytes_to_delete[0] = 0;
      if (take_up_image(logcomp)) return true;
    }
    xtr_trace("XLOG   F: bytes to delete = %ld", static_cast<long>(amounts->bytes_to_delete[0]));
    uint32_t end = header_->file_size;
    if (resumed && !find_end(&end)) return false;
    if (!file.loaded() && !file.load(stream(), end, sizeof(LogcompEvent)))
      return failed(err_, XLOG_ERR_ROOM_NO_MEMORY, static_cast<uint32_t>(errno));
    Compaction compaction(*header_, file, end, err_);
    if (!compaction.mark(amounts) || !compaction.close_gaps()) return false;
    const bool beside = put_beside(compaction.header(), file, logcomp != nullptr);
    if (!mark_live()) return false;
    if (beside && image_.publish(err_)) {
      *header_ = finished_;
      if (logcomp) *logcomp = true;
      return true;
    }
    return move_in_place(compaction, file);
  }

 private:
  FILE* stream() { return err_->file_handle; }

  // A process completed the image and died before it had its name.
  bool take_up_image(bool* logcomp) {
    xlog_file_header finished;
    if (!image_.find_complete(*header_, &finished) || !image_.publish(err_)) return false;
    *header_ = finished;
    xlog_log_info newest;
    if (logcomp)
      *logcomp = finished.last_log_offset != 0 &&
                 read_at(stream(), finished.last_log_offset, &newest, sizeof newest).ok && is_logcomp(newest);
    return true;
  }

  // The header of a file that was broken off says nothing of its size; its newest log does.
  bool find_end(uint32_t* end) {
    *end = XLOG_FILE_HEADER_SIZE;
    if (header_->last_log_offset == 0) return true;
    xtr_trace("XLOG   D: reading log header BB");
    xlog_log_info newest;
    if (!was_read(err_, read_at(stream(), header_->last_log_offset, &newest, sizeof newest), XLOG_ERR_ROOM_NEWEST_SEEK,
                  XLOG_ERR_ROOM_NEWEST_SHORT))
      return false;
    const uint64_t behind = uint64_t{header_->last_log_offset} + newest.total_log_size;
    if (header_->last_log_offset < XLOG_FILE_HEADER_SIZE || behind > UINT32_MAX)
      return failed(err_, XLOG_ERR_ROOM_NEWEST_SHORT, header_->last_log_offset);
    *end = static_cast<uint32_t>(behind);
    return true;
  }

  bool put_beside(const xlog_file_header& header, LoadedFile& file, bool with_logcomp) {
    finished_ = header;
    if (with_logcomp) {
      const Logcomp logcomp(header, static_cast<uint32_t>(time(nullptr)));
      memcpy(file.bytes() + header.file_size, logcomp.bytes(), logcomp.size());
      logcomp.enter(&finished_);
    }
    memcpy(file.bytes(), &finished_, sizeof finished_);
    return image_.write(stream(), file.bytes(), finished_.file_size);
  }

  // From here on the live file's header names no log but the newest, by which a resumption finds the end. The mark goes
  // in first and alone: a header cut off before it would say that the file is empty.
  bool mark_live() {
    xlog_file_header marked = *header_;
    const uint16_t flags = marked.file_flags | XLOG_FILE_PRUNE_IN_PROGRESS;
    if (!was_written(err_, write_at(stream(), offsetof(xlog_file_header, file_flags), &flags, sizeof flags),
                     XLOG_ERR_ROOM_MARK_HEADER_ERROR, XLOG_ERR_ROOM_MARK_HEADER_SHORT) ||
        !was_written(err_, flush(stream()), XLOG_ERR_ROOM_MARK_HEADER_ERROR, XLOG_ERR_ROOM_MARK_HEADER_SHORT))
      return false;
    marked.file_size = XLOG_FILE_HEADER_SIZE;
    memset(marked.class_last_log, 0, sizeof marked.class_last_log);
    marked.file_flags = flags;
    return write_header(marked, XLOG_ERR_ROOM_MARK_HEADER_ERROR, XLOG_ERR_ROOM_MARK_HEADER_SHORT);
  }

  bool write_header(const xlog_file_header& header, uint16_t error_code, uint16_t short_code) {
    xtr_trace("XLOG   D: writing file header");
    return was_written(err_, write_at(stream(), 0, &header, sizeof header), error_code, short_code) &&
           was_written(err_, flush(stream()), error_code, short_code);
  }

  // The disk took no image. A process that dies in here leaves a file that may not be resumable: what is between the
  // two positions is no chain of logs. There is nowhere to put them meanwhile.
  bool move_in_place(const Compaction& compaction, LoadedFile& file) {
    const uint32_t first = compaction.first_moved();
    const uint32_t size = compaction.header().file_size;
    if (size > first &&
        !(was_written(err_, write_at(stream(), first, file.bytes() + first, size - first), XLOG_ERR_ROOM_DATA_ERROR,
                      XLOG_ERR_ROOM_DATA_WRITTEN_SHORT) &&
          was_written(err_, flush(stream()), XLOG_ERR_ROOM_DATA_ERROR, XLOG_ERR_ROOM_DATA_WRITTEN_SHORT)))
      return false;
    *header_ = compaction.header();
    if (!write_header(*header_, XLOG_ERR_ROOM_END_HEADER_ERROR, XLOG_ERR_ROOM_END_HEADER_SHORT)) return false;
    // What lies behind is no log, so that a file which keeps its length is only longer than it has to be.
    return ftruncate(fileno(stream()), size) == 0 ||
           failed(err_, XLOG_ERR_ROOM_SHORTEN, static_cast<uint32_t>(errno), XLOG_LEVEL_REPORT);
  }

  xlog_err_interface* err_;
  xlog_file_header* header_;
  Image image_;
  xlog_file_header finished_ = {};
};

}  // namespace

int32_t delete_logs(xlog_err_interface* err, xlog_file_header* header, xlog_stage_result* amounts, bool* logcomp,
                    LoadedFile& file) {
  xtr_trace("XLOG   T: -> xlog_delete_logs");
  const bool with_utc = header->file_flags & XLOG_FILE_UTC_OFFSET;
  xtr_trace("XLOG   F: size of pruned log %d", with_utc ? kPrunedLogSize : kPrunedLogBareSize);
  const int32_t result = Deletion(err, header).run(amounts, logcomp, file) ? 0 : xlog_error_handler(err);
  xtr_trace("XLOG   T: <- xlog_delete_logs");
  return result;
}

}  // namespace plov::log

int32_t xlog_delete_logs(xlog_err_interface* err_interface, xlog_file_header* file_header,
                         xlog_stage_result* stage_result) {
  plov::log::LoadedFile file;
  return plov::log::delete_logs(err_interface, file_header, stage_result, nullptr, file);
}
