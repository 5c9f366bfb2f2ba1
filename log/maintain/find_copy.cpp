// From a log of the file being read to the compressed copy that ends with it.
#include <string.h>

#include "frame/memory.h"
#include "log/stream.h"
#include "xdfc.h"
#include "xlog.h"
#include "xtr.h"

namespace plov::log {
namespace {

constexpr char kPattern[] = "wexocom*.log";
constexpr uint32_t kListSize = 260;

// One walk through the copies at a time in a process.
struct {
  char* list;  // the names not yet used, each with its NUL
  uint32_t list_size;
  uint32_t count;
  char last[kListSize];  // the copy switched to last
} copies;

void forget() {
  PLOV_FREE(copies.list);
  copies = {};
}

// As many names as fit, in the directory's order: more of them are a failure of the listing that leaves those there.
void list_names() {
  copies.list = static_cast<char*>(PLOV_MALLOC(kListSize));
  char pattern[XDFC_PATH_SIZE + sizeof kPattern];
  uint32_t code = 0;
  if (!copies.list || xdfc_query_file_location(kPattern, pattern, &code) != 0) return;
  strcat(pattern, kPattern);
  xdfc_list_file_mem(pattern, copies.list, kListSize, &copies.count, &code);
  for (uint32_t i = 0; i < copies.count; ++i)
    copies.list_size += static_cast<uint32_t>(strlen(copies.list + copies.list_size)) + 1;
  xtr_dump_bytes(copies.list, copies.list_size);
}

void remove_name(char* name) {
  const auto size = static_cast<uint32_t>(strlen(name)) + 1;
  const auto at = static_cast<uint32_t>(name - copies.list);
  memmove(name, name + size, copies.list_size - at - size);
  copies.list_size -= size;
  --copies.count;
}

char* find_name(const char* wanted) {
  char* const begin = copies.list;
  for (char* name = begin; name < begin + copies.list_size; name += strlen(name) + 1)
    if (strcmp(name, wanted) == 0) return name;
  return nullptr;
}

// Opens a copy whose newest log is as long as the one reached: lengths are all that is compared. nullptr: it is another
// one, or cannot be read.
FILE* open_matching(const char* name, const xlog_log_info& reached, xlog_file_header* header) {
  FILE* stream = nullptr;
  uint32_t code = 0;
  if (xdfc_search_file_open2(name, "r", &stream, &code) != 0 || !stream) return nullptr;
  xlog_log_info newest;
  if (read_at(stream, 0, header, sizeof *header).ok && header->last_log_offset >= XLOG_FILE_HEADER_SIZE &&
      read_at(stream, header->last_log_offset, &newest, sizeof newest).ok &&
      newest.total_log_size == reached.total_log_size)
    return stream;
  xdfc_close_file(stream, &code);
  return nullptr;
}

FILE* find_by_name(const char* wanted, const xlog_log_info& reached, xlog_file_header* header) {
  char* const listed = find_name(wanted);
  if (!listed) return nullptr;
  remove_name(listed);
  FILE* const stream = open_matching(wanted, reached, header);
  if (stream) {
    xtr_trace("XLOG   D: found matching log in [%s}", wanted);
    snprintf(copies.last, sizeof copies.last, "%s", wanted);
  } else {
    xtr_trace("XLOG   D: did not find matching log in [%s}", wanted);
  }
  return stream;
}

FILE* find_any(const xlog_log_info& reached, xlog_file_header* header) {
  for (char* name = copies.list; name < copies.list + copies.list_size; name += strlen(name) + 1) {
    FILE* const stream = open_matching(name, reached, header);
    if (stream) {
      xtr_trace("XLOG   F: found matching log in [%s}", name);
      snprintf(copies.last, sizeof copies.last, "%s", name);
      remove_name(name);
      return stream;
    }
    xtr_trace("XLOG   F: did not find matching log in [%s}", name);
  }
  return nullptr;
}

}  // namespace
}  // namespace plov::log

int32_t xlog_find_comp_log(const char* name, uint32_t offset, uint32_t* new_offset, int32_t reset, int32_t* found,
                           xlog_file_header* file_header, xlog_err_interface* err_interface) {
  using namespace plov::log;
  *found = 0;
  if (reset != 0) {
    forget();
    return 0;
  }
  xlog_log_info reached;
  const Transfer read = read_at(err_interface->file_handle, offset, &reached, sizeof reached);
  if (!read.ok) {
    xtr_trace("XLOG   D: error reading compress log, bytes read = %d", read.stream_error ? 0 : read.reason);
    return 0;
  }
  if (!copies.list) list_names();
  if (!copies.list || (name && strcmp(name, copies.last) == 0)) return 0;
  xlog_file_header header;
  FILE* const stream = name ? find_by_name(name, reached, &header) : find_any(reached, &header);
  if (!stream) return 0;
  uint32_t code = 0;
  xdfc_close_file(err_interface->file_handle, &code);
  err_interface->file_handle = stream;
  *new_offset = header.last_log_offset;
  *file_header = header;
  *found = 1;
  return 0;
}
