// Before a full log loses anything: a copy of it, and a tally of what its keep counts let go.
#include "log/maintain/stage.h"

#include <strings.h>

#include "frame/memory.h"
#include "log/configuration.h"
#include "log/interim.h"
#include "log/maintain/copy.h"
#include "log/maintain/failed.h"
#include "log/maintain/make_room.h"
#include "log/maintain/tally.h"
#include "xtr.h"

namespace plov::log {
namespace {

struct Configuration : xlog_configuration {
  Configuration() : xlog_configuration{} {}
  ~Configuration();
  Configuration(const Configuration&) = delete;
  Configuration& operator=(const Configuration&) = delete;
};

Configuration::~Configuration() {
  while (xlog_class_record* const record = class_list) {
    while (xlog_type_record* const type = record->types) {
      record->types = type->next;
      xtr_trace("XLOG   D: freeing type_list address %p", static_cast<void*>(type));
      PLOV_FREE(type);
    }
    class_list = record->next;
    xtr_trace("XLOG   D: freeing class_list address %p", static_cast<void*>(record));
    PLOV_FREE(record);
  }
}

bool is_main_log(const char* session) {
  return session[0] == '\0' || strcasecmp(session, "log") == 0;
}

// The file is closed meanwhile: what the stream holds is in the file, and the copy is of the whole of it.
bool copy_aside(xlog_err_interface* err, uint16_t size_word, const char* slot_name) {
  LogName name;
  LogPath path;
  parse_name(err->target_session, &name);
  locate(name, &path);
  uint32_t code = 0;
  const int32_t closed = xdfc_close_file(err->file_handle, &code);
  err->file_handle = nullptr;
  if (closed != 0) return failed(err, XLOG_ERR_ROOM_CLOSE, code, XLOG_LEVEL_REPORT);
  copy_main_log(slot_name, size_word);
  if (open_stream(path.path, "r+", &err->file_handle, &code) == 0 && err->file_handle) return true;
  err->file_handle = nullptr;
  return failed(err, XLOG_ERR_ROOM_REOPEN, code, XLOG_LEVEL_REPORT);
}

bool tally(const xlog_file_header& header, xlog_err_interface* err, const Configuration& configuration,
           xlog_stage_result* result, LoadedFile& file) {
  if (!file.load(err->file_handle, header.file_size, sizeof(LogcompEvent)))
    return failed(err, XLOG_ERR_ROOM_NO_MEMORY, static_cast<uint32_t>(errno));
  if (file.read_error() != 0) return failed(err, XLOG_ERR_ROOM_TALLY_ERROR, static_cast<uint32_t>(file.read_error()));
  Tally tally;
  if (!tally_logs(header, configuration, file, err, &tally)) return false;
  bool deleted;
  const Transfer written = file.write_flags(err->file_handle, &deleted);
  if (!(deleted ? was_written(err, written, XLOG_ERR_ROOM_DELETED_ERROR, XLOG_ERR_ROOM_DELETED_SHORT)
                : was_written(err, written, XLOG_ERR_ROOM_KEPT_ERROR, XLOG_ERR_ROOM_KEPT_SHORT)))
    return false;
  *result = spread(tally, header.max_file_size);
  const auto amount = [&](int priority) { return static_cast<long>(result->bytes_to_delete[priority]); };
  xtr_trace("XLOG   D: bytes to delete priority 0 = %ld ", amount(0));
  xtr_trace("XLOG   D: bytes to delete priority 1 = %ld ", amount(1));
  xtr_trace("XLOG   D: bytes to delete priority 2 = %ld ", amount(2));
  xtr_trace("XLOG   D: bytes to delete priority 3 = %ld ", amount(3));
  return true;
}

}  // namespace

int32_t stage_one(const xlog_file_header& header, xlog_err_interface* err, xlog_stage_result* result, char* copy_name,
                  LoadedFile* file) {
  *result = {};
  copy_name[0] = '\0';
  {
    Configuration configuration;
    const int32_t read = read_configuration(err, true, &configuration);
    if (read != 0) {
      xtr_trace("XLOG   F: failure getting values from wexoinit.trm file");
      return read;
    }
    const int slot = is_main_log(err->target_session) ? choose_slot(configuration.compressed_copies) : -1;
    if (slot >= 0) {
      const SlotName name(slot);
      strcpy(copy_name, name.text);
      xtr_trace("XLOG   F: name of compressed file is [%s]", copy_name);
      if (!copy_aside(err, configuration.short_name_file_size, copy_name)) return kStageFailed;
    }
    if (tally(header, err, configuration, result, *file)) return 0;
  }
  return xlog_error_handler(err);
}

}  // namespace plov::log

int32_t xlog_stage_one(xlog_file_header* file_header, xlog_err_interface* err_interface,
                       xlog_stage_result* stage_result, char* copy_name) {
  plov::log::LoadedFile file;
  return plov::log::stage_one(*file_header, err_interface, stage_result, copy_name, &file);
}
