#include "sim/load.h"

#include <errno.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include "frame/call.h"
#include "frame/memory.h"
#include "frame/probe.h"
#include "sim/data_file.h"
#include "sim/map.h"
#include "sim/process_mutex.h"
#include "xdfc.h"
#include "xsim.h"
#include "xtr.h"

namespace plov::sim {
namespace {

constexpr int kMode = 0666;
constexpr uint32_t kBufferSize = 65536;

// What is said of each pass. That a permanent file is missing is said in the same words of both.
struct Words {
  const char* data_file;
  const char* permanent_file;
  const char* too_many;
  const char* no_array;
  const char* array_not_attached;
  const char* too_much;
  const char* no_data;
  const char* data_not_attached;
  const char* permanent_unread;
  const char* not_closed;
};
constexpr Words kWords[2] = {
    {"ywkzsim.dat", "ywkzspr.dat", "XSIM   F: SIM too large for Tolvane file, size is %x",
     "XSIM   F: shmget failed for Tolvane SIM array, errno of %x",
     "XSIM   F: shmat failed for Tolvane SIM array, errno of %x", "XSIM   F: Tolvane SIM data too large, size is %x",
     "XSIM   F: shmget failed for Tolvane SIM data, errno of %x",
     "XSIM   F: shmat failed for Tolvane SIM data, errno of %x",
     "XSIM   F: xdfc_read failed for Tolvane SIM data rc is %x,ret is %x",
     "XSIM   F: xdfc_close failed for Tolvane perm SIM data rc is %x,ret is %x"},
    {"kvdzsim.dat", "kvdzspr.dat", "XSIM   F: SIM too large for Quen file, size is %x",
     "XSIM   F: shmget failed for Quen SIM array, errno of %x",
     "XSIM   F: shmat failed for Quen SIM array, errno of %x", "XSIM   F: Quen SIM data too large, size is %x",
     "XSIM   F: shmget failed for Quen SIM data, errno of %x", "XSIM   F: shmat failed for Quen SIM data, errno of %x",
     "XSIM   F: xdfc_read failed for Quen SIM data rc is %x,ret is %x",
     "XSIM   F: xdfc_close failed for Quen perm SIM data rc is %x,ret is %x"},
};

// One of a pass's two files, closed at the end of whatever happens.
class File {
 public:
  File() = default;
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() { close(); }

  bool open(const char* name) {
    uint32_t code;
    return xdfc_search_file_open2(name, "r", &stream_, &code) == 0;
  }
  // As much as the buffer is meant to take. The end of the file is no failure.
  bool read(uint8_t* buffer, Bytes* bytes, uint32_t* code, int32_t* result) {
    int32_t done = 0;
    *code = 0;
    *result = xdfc_read(buffer, 1, XSIM_FILE_LIMIT, stream_, &done, code);
    *bytes = {buffer, static_cast<size_t>(done)};
    return *result == 0 || *code == XDFC_END_OF_FILE;
  }
  int32_t close(uint32_t* code = nullptr) {
    uint32_t scratch;
    if (!stream_) return 0;
    const int32_t result = xdfc_close_file(stream_, code ? code : &scratch);
    stream_ = nullptr;
    return result;
  }

 private:
  FILE* stream_ = nullptr;
};

class Loader {
 public:
  // 0, or the code of the first failure; what was loaded before it stays.
  uint32_t run() {
    data_buffer_.reset(static_cast<uint8_t*>(PLOV_MALLOC(kBufferSize)));
    permanent_buffer_.reset(static_cast<uint8_t*>(PLOV_MALLOC(kBufferSize)));
    if (!data_buffer_ || !permanent_buffer_) return XSIM_NO_MEMORY;
    for (int pass = XSIM_TOLVANE; pass <= XSIM_QUEN; ++pass) {
      bool absent = false;
      if (const uint32_t code = load(pass, &absent); code != 0) return code;
      if (absent) break;
    }
    return 0;
  }

 private:
  uint32_t load(int pass, bool* absent);
  static uint32_t make_segment(uint32_t key, uint32_t size, const char* not_made, const char* not_attached, int32_t* id,
                               Segment* segment);

  frame::Owned<uint8_t> data_buffer_, permanent_buffer_;
};

uint32_t Loader::make_segment(uint32_t key, uint32_t size, const char* not_made, const char* not_attached, int32_t* id,
                              Segment* segment) {
  xtr_trace("XSIM   F: using key of %x", key);
  *id = shmget(static_cast<key_t>(key), size, kMode | IPC_CREAT);
  if (*id < 0) {
    xtr_trace(not_made, errno);
    return XSIM_NO_MEMORY;
  }
  if (!segment->attach(*id, key)) {
    xtr_trace(not_attached, errno);
    return XSIM_NO_MEMORY;
  }
  memset(segment->address(), 0, size);  // it may be one that outlived an earlier map
  return 0;
}

uint32_t Loader::load(int pass, bool* absent) {
  const Words& words = kWords[pass];
  File data_file, permanent_file;
  if (!data_file.open(words.data_file)) {
    *absent = pass == XSIM_QUEN;  // the second array is optional
    if (*absent) return 0;
    xtr_trace("XSIM   D: YWKZSIM.DAT not found");
    return XSIM_NO_DATA_FILE;
  }
  if (!permanent_file.open(words.permanent_file)) {
    xtr_trace("XSIM   D: YWKZSPR.DAT not found");
    return XSIM_NO_PERMANENT_FILE;
  }
  Bytes data, permanent;
  uint32_t code;
  int32_t result;
  if (!data_file.read(data_buffer_.get(), &data, &code, &result)) return XSIM_READ_FAILED;
  PassSizes sizes;
  if (!read_head(pass, data, &sizes)) return XSIM_READ_FAILED;

  xsim_pass_record& record = pXsim_ptr->pass[pass];
  record.field_count = sizes.field_count;
  xtr_trace("XSIM   F: -> field_count=%d, data_size=%d", sizes.field_count, sizes.data_size);
  xtr_trace("XSIM   F: alloc_size = %d (dec)", sizes.array_size());
  if (sizes.too_many_fields()) {
    xtr_trace(words.too_many, sizes.array_size());
    return XSIM_TOO_MANY_FIELDS;
  }
  Segment array, area;
  code = make_segment(kArrayKeys[pass], sizes.array_segment(), words.no_array, words.array_not_attached,
                      &record.array_id, &array);
  if (code != 0) return code;
  if (sizes.too_much_data()) {
    xtr_trace(words.too_much, sizes.data_size);
    return XSIM_TOO_MUCH_DATA;
  }
  code = make_segment(kDataKeys[pass], sizes.data_segment(), words.no_data, words.data_not_attached, &record.data_id,
                      &area);
  if (code != 0) return code;
  if (!permanent_file.read(permanent_buffer_.get(), &permanent, &code, &result)) {
    xtr_trace(words.permanent_unread, code, result);
    return XSIM_READ_FAILED;
  }
  // By the sizes that this file asks for: a segment that outlived an earlier map may be larger.
  code = walk_records(pass, data, permanent,
                      {static_cast<xsim_entry*>(array.address()), sizes.array_segment() / sizeof(xsim_entry)},
                      {static_cast<uint8_t*>(area.address()), sizes.data_segment()});
  if (code != 0) return code;
  publish(pass, array, area);
  __atomic_store_n(&record.loaded, 1, __ATOMIC_RELEASE);

  uint32_t not_closed = 0;
  for (File* file : {&data_file, &permanent_file}) {
    code = 0;
    result = file->close(&code);
    if (result == 0) continue;
    xtr_trace(words.not_closed, code, result);
    not_closed = XSIM_CLOSE_FAILED;
  }
  return not_closed;
}

int attach(int id) {
  void* const address = shmat(id, nullptr, 0);
  if (address == reinterpret_cast<void*>(-1)) {
    const int error = errno;
    xtr_trace("XSIM   F: Error attaching to SIM shared memory block (errno=%d %s)\n", error, strerror(error));
    return error;
  }
  __atomic_store_n(&pXsim_ptr, static_cast<xsim_header_block*>(address), __ATOMIC_RELEASE);
  return 0;
}

// The header block. `*created` tells who is to load. 0 or an errno.
int attach_header(bool* created) {
  constexpr auto kKey = static_cast<key_t>(XSIM_KEY_HEADER);
  int id = shmget(kKey, sizeof(xsim_header_block), kMode | IPC_CREAT | IPC_EXCL);
  *created = id >= 0;
  if (id < 0 && errno == EEXIST) id = shmget(kKey, sizeof(xsim_header_block), kMode | IPC_CREAT);
  if (id < 0) {
    const int error = errno;
    xtr_trace("XSIM   F: Error retrieving SIM shared memory block (errno=%d %s)\n", error, strerror(error));
    return error;
  }
  const int error = attach(id);
  if (!*created) return error;
  // A block that nobody loads would leave the machine without a map until it is started again.
  if (error != 0)
    shmctl(id, IPC_RMID, nullptr);
  else
    memset(pXsim_ptr, 0, sizeof(xsim_header_block));
  return error;
}

}  // namespace

int32_t init(uint32_t* comprc) {
  xtr_trace("XSIM   T: -> xsim_init");
  int32_t result = 0;
  {
    const ProcessLock lock;
    bool created = false;
    if (!pXsim_ptr) result = lock.held() ? attach_header(&created) : EDEADLK;
    if (result != 0) *comprc = XSIM_NO_MEMORY;
    if (created && result == 0) {
      *comprc = Loader().run();
      if (*comprc != 0) result = frame::kRefused;
    }
    // A load holds nothing at its end; its readers look for the two lines of every operation's end all the same.
    xtr_trace("XSIM   D: -> xsim_exit");
    xtr_trace("XSIM   D: <- xsim_exit");
  }
  xtr_trace("XSIM   T: <- xsim_init");
  return result;
}

}  // namespace plov::sim

int32_t xsim_init(uint32_t* comprc) {
  using namespace plov;
  // The probe alone: entry and exit are traced where every operation's own look at the map is traced too.
  uint32_t scratch;
  if (frame::probe(comprc, sizeof *comprc, frame::Access::write, &scratch) != 0) {
    xtr_trace("XSIM   T: -> xsim_init");
    xtr_trace("XSIM   T: <- xsim_init");
    return frame::kUnusableComprc;
  }
  uint32_t code = *comprc;
  const int32_t sysrc = sim::init(&code);
  *comprc = code;
  if (sysrc != 0) xtr_trace("XSIM   F:    xsim_init: src= 0x%X, crc= 0x%X", sysrc, code);
  return sysrc;
}

int32_t xsim_uninit(void) {
  using namespace plov::sim;
  {
    // Without a map there is nothing to mark; making one here would leave it unloaded for ever.
    const ProcessLock lock;
    const int id = pXsim_ptr ? -1 : shmget(static_cast<key_t>(XSIM_KEY_HEADER), sizeof(xsim_header_block), 0);
    if (id >= 0) attach(id);
  }
  if (pXsim_ptr) __atomic_store_n(&pXsim_ptr->pass[XSIM_TOLVANE].loaded, 0, __ATOMIC_RELEASE);
  return 0;
}
