#include "sim/data_file.h"

#include <string.h>

#include <algorithm>

#include "xsim.h"
#include "xtr.h"

namespace plov::sim {
namespace {

class Walk {
 public:
  Walk(int pass, Bytes data_file, Bytes permanent_file, std::span<xsim_entry> array, std::span<uint8_t> area)
      : pass_(pass), file_(data_file), permanent_(permanent_file), array_(array), area_(area) {}

  uint32_t run() {
    while (at_ < file_.size())
      if (const uint32_t code = take_record(); code != 0) return code;
    return 0;
  }

 private:
  uint32_t take_record();
  uint32_t give_storage(xsim_entry& entry, const xsim_data_record& record);
  void copy_permanent(uint8_t* value, uint32_t size);

  // The entry's first word before and after it is filled, for whoever follows a load that went wrong.
  void trace_entry(int32_t index, const xsim_entry& entry) const;

  const int pass_;
  const Bytes file_, permanent_;
  const std::span<xsim_entry> array_;
  const std::span<uint8_t> area_;
  size_t at_ = sizeof(xsim_data_head);
  uint32_t data_offset_ = 0;
  uint32_t permanent_offset_ = XSIM_PERMANENT_START;
};

void Walk::trace_entry(int32_t index, const xsim_entry& entry) const {
  const void* const at = &entry;
  xtr_trace("XSIM   F: about to initialize index %d (dec)", index);
  xtr_trace("XSIM   F: SIM_array[pass] = %p", static_cast<const void*>(array_.data()));
  xtr_trace("XSIM   F: SIM_array[pass]+wk_index = %p", at);
  xtr_trace("XSIM   F: pass = %d (dec), wk_index = %d (dec)", pass_, index);
  xtr_trace("XSIM   F: try to write to address %p", at);
  xtr_trace("XSIM   F: int_ptr = %p", at);
  xtr_trace("XSIM   F: *int_ptr = %d (dec)", entry.size);
}

// Values the permanent file does not have are zero.
void Walk::copy_permanent(uint8_t* value, uint32_t size) {
  const size_t from = permanent_offset_ + XSIM_PERMANENT_PREFIX;
  if (from < permanent_.size()) memcpy(value, &permanent_[from], std::min<size_t>(size, permanent_.size() - from));
}

uint32_t Walk::give_storage(xsim_entry& entry, const xsim_data_record& record) {
  const auto size = static_cast<uint32_t>(record.size);
  xtr_trace("XSIM   F: now preparing to sub-allocate");
  if (size > area_.size() - data_offset_) return XSIM_TOO_MUCH_DATA;
  uint8_t* const value = area_.data() + data_offset_;
  entry.offset = data_offset_;
  const uint32_t storage = record.type & XSIM_STORAGE_BITS;
  if (storage == XSIM_DATA) {
    if (size > file_.size() - at_) return XSIM_READ_FAILED;
    memcpy(value, &file_[at_], size);
    at_ += size;
  } else if (storage == XSIM_PERMANENT) {
    entry.permanent_offset = permanent_offset_ + XSIM_PERMANENT_PREFIX;
    copy_permanent(value, size);
    permanent_offset_ += XSIM_PERMANENT_PREFIX + size;
  }
  data_offset_ += size;
  entry.flags |= XSIM_INITIALIZED;
  return 0;
}

uint32_t Walk::take_record() {
  xsim_data_record record;
  if (file_.size() - at_ < sizeof record) return XSIM_READ_FAILED;
  memcpy(&record, &file_[at_], sizeof record);
  const int32_t index = record.id - (pass_ == XSIM_QUEN ? XSIM_FIRST_QUEN_ID : 1);
  if (index < 0 || static_cast<size_t>(index) >= array_.size()) return XSIM_TOO_MANY_FIELDS;
  if (record.size < 0) return XSIM_TOO_MUCH_DATA;

  xsim_entry& entry = array_[static_cast<size_t>(index)];
  trace_entry(index, entry);
  entry.size = static_cast<uint32_t>(record.size);
  entry.flags = static_cast<uint8_t>((entry.flags & (XSIM_INITIALIZED | XSIM_LOCKED)) | (record.type & XSIM_TYPE_BITS)
                                                                                            << XSIM_TYPE_SHIFT);
  xtr_trace("XSIM   F: Done writing to field size");
  xtr_trace("XSIM   F: updated int_ptr = %p", static_cast<void*>(&entry));
  xtr_trace("XSIM   F: updated *int_ptr = %d (dec)", entry.size);
  xtr_trace("XSIM   F: ptr = %p", static_cast<const void*>(&file_[at_]));
  // A record of size 0 ends before its type byte: what follows is misread. Files therefore hold none, and programs that
  // make them are checked against this reader. Do not repair.
  at_ += record.size == 0 ? offsetof(xsim_data_record, type) : sizeof record;
  xtr_trace("XSIM   F: updated ptr = %p", static_cast<const void*>(file_.data() + at_));
  xtr_trace("XSIM   F: see if we have to sub-allocate");
  return record.size == 0 ? 0 : give_storage(entry, record);
}

}  // namespace

bool read_head(int pass, Bytes data_file, PassSizes* sizes) {
  xsim_data_head head;
  if (data_file.size() < sizeof head) return false;
  memcpy(&head, data_file.data(), sizeof head);
  sizes->field_count = head.highest_id + 1 - (pass == XSIM_QUEN ? XSIM_FIRST_QUEN_ID - 1 : 0);
  sizes->data_size = head.data_size;
  return true;
}

uint32_t walk_records(int pass, Bytes data_file, Bytes permanent_file, std::span<xsim_entry> array,
                      std::span<uint8_t> area) {
  return Walk(pass, data_file, permanent_file, array, area).run();
}

}  // namespace plov::sim
