// Arbitrary bytes as a log file, read back in several ways and changed in place: nothing is read or written outside,
// what comes out keeps the promises of xlog.h, all memory comes back. The mutator knows where the fields lie, so that
// most inputs are nearly right.
#include <sched.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "fuzz/support.h"
#include "plovmemdebug.h"
#include "xlog.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t max_size);

namespace {

int file = -1;
char name[64];
int blocks_held;

void write_file(const uint8_t* data, size_t size) {
  require(ftruncate(file, 0) == 0);
  require(pwrite(file, data, size, 0) == static_cast<ssize_t>(size));
}

// Follows the promises of the result; returns the number of records.
uint32_t count_records(const xlog_retrieve_block& block) {
  uint32_t count = 0, seconds = 0;
  for (const xlog_log_entry* entry = block.result; entry; entry = entry->next, ++count) {
    require(entry->timestamp.hundredths < 100);
    require((entry->flags & ~(XLOG_LOG_PROBLEM_ANALYSIS | XLOG_LOG_DISPLAY_AS_ERROR)) == 0);
    for (const xlog_block_entry* part = entry->blocks; part; part = part->next) {
      require(part->length <= XLOG_MAX_BLOCK_SIZE && !part->data == (part->length == 0));
      for (uint32_t i = 0; i < part->length; ++i) seconds += part->data[i];  // every byte is there
    }
  }
  volatile uint32_t used = seconds;
  (void)used;
  return count;
}

uint32_t retrieve(const xlog_retrieve_block& wanted) {
  xlog_retrieve_block block = wanted;
  snprintf(block.target_session, sizeof block.target_session, "!%s", name);
  uint32_t comprc = 0;
  const int32_t sysrc = xlog_retrieve(&block, &comprc);
  const uint32_t count = count_records(block);
  require(count == block.count && (sysrc == 0 || count == 0) && (sysrc == 0) == (comprc == 0));
  require(block.maximum == 0 || count <= block.maximum);
  require(xlog_free(&block, &comprc) == 0);
  require(blocks_held == 0);
  return count;
}

// Wherever the links lead, a change in place leaves the file header alone.
template <class Request>
void change(const uint8_t* data, size_t size, int32_t (*call)(Request*, uint32_t*), Request request) {
  write_file(data, size);
  request.identity = {{1, 1, 0}, {1000, 0}};  // of a log as the tests make it
  snprintf(request.target_session, sizeof request.target_session, "!%s", name);
  uint32_t comprc = 0;
  const int32_t sysrc = call(&request, &comprc);
  require(sysrc == 0 || sysrc == 8);
  uint8_t header[XLOG_FILE_HEADER_SIZE];
  if (size < sizeof header || sysrc != 0) return;
  // But an interrupted prune is completed first.
  if ((data[offsetof(xlog_file_header, file_flags)] & XLOG_FILE_PRUNE_IN_PROGRESS) != 0) return;
  require(pread(file, header, sizeof header, 0) == static_cast<ssize_t>(sizeof header));
  require(memcmp(header, data, sizeof header) == 0);
}

// ---- the mutator ----------------------------------------------------------------------------------------------------

using Random = std::minstd_rand;

template <class T>
T pick(const std::vector<T>& from, Random& random) {
  return from[random() % from.size()];
}

uint32_t word_at(const uint8_t* data, size_t size, size_t offset) {
  uint32_t value = 0;
  if (offset + sizeof value <= size) memcpy(&value, data + offset, sizeof value);
  return value;
}

// Where logs are, found as a reader finds them.
std::vector<uint32_t> log_offsets(const uint8_t* data, size_t size) {
  std::vector<uint32_t> offsets = {XLOG_FILE_HEADER_SIZE};
  uint32_t offset = word_at(data, size, offsetof(xlog_file_header, last_log_offset));
  while (offset != 0 && offset < size && offsets.size() < 100) {
    offsets.push_back(offset);
    offset = word_at(data, size, offset + offsetof(xlog_log_info, prev_log_offset));
  }
  return offsets;
}

void change_field(uint8_t* data, size_t size, Random& random) {
  struct Field {
    size_t offset, size;
  };
  const std::vector<uint32_t> offsets = log_offsets(data, size);
  const size_t log = pick(offsets, random);
  const size_t entry = log + sizeof(xlog_log_info) + random() % 6 * sizeof(xlog_block_info);
  const std::vector<Field> fields = {{offsetof(xlog_file_header, last_log_offset), 4},
                                     {offsetof(xlog_file_header, file_size), 4},
                                     {offsetof(xlog_file_header, class_last_log) + random() % 256 * 4, 4},
                                     {log + offsetof(xlog_log_info, total_log_size), 4},
                                     {log + offsetof(xlog_log_info, eventid), 1},
                                     {log + offsetof(xlog_log_info, timestamp) + 4, 1},
                                     {log + offsetof(xlog_log_info, log_flags), 2},
                                     {log + offsetof(xlog_log_info, prev_log_offset), 4},
                                     {log + offsetof(xlog_log_info, prev_class_log_offset), 4},
                                     {log + offsetof(xlog_log_info, num_blocks), 2},
                                     {entry, 1},
                                     {entry + 1, 2}};
  const Field field = pick(fields, random);
  if (field.offset + field.size > size) return;
  const uint32_t old = word_at(data, size, std::min(field.offset, size - 4));
  const uint32_t near = static_cast<uint32_t>(random() % 5) - 2;
  const std::vector<uint32_t> values = {0,
                                        0xFFFFFFFF,
                                        old + near,
                                        old ^ 4,
                                        static_cast<uint32_t>(size) + near,
                                        0xFF00,
                                        256 + near,
                                        pick(offsets, random) + near,
                                        old << 8,
                                        static_cast<uint32_t>(random())};
  const uint32_t value = pick(values, random);
  memcpy(data + field.offset, &value, field.size);
}

}  // namespace

// Straight from the sanitizer, whose guards lie closer.
void* plovmemdebug_malloc(size_t size, const char*, int32_t) {
  ++blocks_held;
  return malloc(size);
}

void plovmemdebug_free(void* block, const char*, int32_t) {
  if (block) --blocks_held;
  free(block);
}

// The error handler records; a record paces itself.
extern "C" int clock_nanosleep(clockid_t, int, const struct timespec*, struct timespec*) {
  return 0;
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // The log lock is the machine's: here it is nobody else's.
  require(unshare(CLONE_NEWIPC) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWIPC) == 0);
  setenv("CONSOLE_PATH", "/nonexistent/", 1);
  file = memfd_create("log", MFD_CLOEXEC);
  require(file >= 0);
  snprintf(name, sizeof name, "/proc/self/fd/%d", file);
  return 0;
}

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t max_size, unsigned seed) {
  Random random(seed);
  if (size < XLOG_FILE_HEADER_SIZE || random() % 4 == 0) return LLVMFuzzerMutate(data, size, max_size);
  for (unsigned changes = 1 + static_cast<unsigned>(random() % 3); changes > 0; --changes)
    change_field(data, size, random);
  return size;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const uint8_t bytes[] = "pattern", mask[] = "\xFF\xDF\0\xFF\xFF\xFF\xFF", ids[] = {0, 1, 0x10};
  static xlog_pattern pattern = {3, 1, bytes, mask, nullptr};
  std::vector<xlog_retrieve_block> requests(6);
  requests[0].options = XLOG_OPT_ALL_CLASSES;
  requests[1].options = XLOG_OPT_ANY_EVENTID;
  requests[1].eventid.classes = 1;
  requests[2].options = XLOG_OPT_TYPE_ONLY | XLOG_OPT_EXACT_TIME;
  requests[2].eventid = {0xFF, 0xFF, 0};
  requests[2].start = {1, 0};
  requests[3].options = XLOG_OPT_ALL_CLASSES;
  requests[3].maximum = 2;
  requests[3].start = {2, 0};
  requests[3].end = {0xF0000000, 0};
  requests[4].options = XLOG_OPT_ALL_CLASSES;
  requests[4].patterns = &pattern;
  requests[5].options = XLOG_OPT_ALL_CLASSES;
  requests[5].id_list = ids;
  requests[5].id_count = sizeof ids;

  std::vector<uint32_t> counts;
  for (const xlog_retrieve_block& request : requests) {
    write_file(data, size);  // the error handler may have replaced it
    counts.push_back(retrieve(request));
  }
  // A list takes blocks away, never logs.
  require(counts[5] == counts[0] && counts[4] <= counts[0]);

  xlog_update_request update = {};
  update.data_size = 7;
  update.data = "changed";
  change(data, size, xlog_update_log, update);
  change(data, size, xlog_update_type, xlog_update_type_request{});
  change(data, size, xlog_mark_log_for_delete, xlog_mark_request{});
  return 0;
}
