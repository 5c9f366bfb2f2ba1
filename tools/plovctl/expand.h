// The library's decoder on one block in the stored form.
#ifndef PLOV_CTL_EXPAND_H
#define PLOV_CTL_EXPAND_H

#include <cstdint>
#include <optional>
#include <vector>

#include "format_check.h"

namespace plov::ctl {

// Nothing when the bytes are no block; they then hold what could be made of them up to the fault.
struct Expansion {
  bool whole = false;
  std::vector<uint8_t> bytes;
};
Expansion expand_block(Bytes stored);

// For check_format.
std::optional<uint32_t> expanded_length(Bytes stored);

}  // namespace plov::ctl

#endif
