#include "log/system_field.h"

#include <string.h>

#include <algorithm>

#include "xsim.h"

namespace plov::log {
namespace {

// The map reads a whole field, as long as its definition file makes it: a longer one than this is none of ours.
constexpr uint32_t kLargestField = 256;

}  // namespace

int32_t read_system_field(uint32_t id, void* value, size_t size, uint32_t* code) {
  const uint32_t field_size = xsim_size(id);
  if (field_size == 0 || field_size > kLargestField) {
    *code = field_size == 0 ? XSIM_NOT_INITIALIZED : XSIM_TOO_MUCH_DATA;
    return 2;
  }
  uint8_t field[kLargestField] = {};
  *code = 0;
  const int32_t result = xsim_read(id, field, code);
  if (result != 0) return result;
  memset(value, 0, size);
  memcpy(value, field, std::min<size_t>(size, field_size));
  return 0;
}

}  // namespace plov::log
