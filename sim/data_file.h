// The map's two files as they are read: untrusted bytes in, array and data area out. No file, no shared memory.
#ifndef PLOV_SIM_DATA_FILE_H
#define PLOV_SIM_DATA_FILE_H

#include <stddef.h>
#include <stdint.h>

#include <span>

#include "xsim_format.h"

namespace plov::sim {

using Bytes = std::span<const uint8_t>;

// What the head of a data file says of its pass. `field_count` may be negative.
struct PassSizes {
  int32_t field_count;
  uint32_t data_size;

  // Of the array, without the eight bytes that every segment has beyond it, as the limit compares it: a negative count
  // is too large.
  uint32_t array_size() const { return static_cast<uint32_t>(field_count) * sizeof(xsim_entry) + 16; }
  uint32_t array_segment() const { return array_size() + 8; }
  bool too_many_fields() const { return array_size() > XSIM_FILE_LIMIT || field_count < 0; }
  bool too_much_data() const { return data_size > XSIM_DATA_LIMIT - static_cast<uint32_t>(field_count) * 10; }
  uint32_t data_segment() const { return static_cast<uint32_t>(field_count) * 10 + data_size + 12; }
};

// False when the file is shorter than its head.
bool read_head(int pass, Bytes data_file, PassSizes* sizes);

// Walks the records behind the head and fills array and data area, both of which are zero. Result: 0, or the code of
// the first impossible record: XSIM_READ_FAILED when it passes the end of the file, XSIM_TOO_MANY_FIELDS when its slot
// is outside the array, XSIM_TOO_MUCH_DATA when its size is negative or its value passes the area. What the permanent
// file is too short for stays zero.
uint32_t walk_records(int pass, Bytes data_file, Bytes permanent_file, std::span<xsim_entry> array,
                      std::span<uint8_t> area);

}  // namespace plov::sim

#endif
