// Every rule of the log file format, verified on bytes alone.
#ifndef PLOV_CTL_FORMAT_CHECK_H
#define PLOV_CTL_FORMAT_CHECK_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "log_layout.h"

namespace plov::ctl {

// One complaint: where, which field, what is there, what should be. A note is not damage.
struct Finding {
  bool note = false;
  uint64_t offset = 0;  // of the field in the file header, of the log elsewhere
  std::string field;
  std::string found;
  std::string expected;
};

std::string to_text(const Finding& finding);

struct CheckResult {
  std::vector<Finding> findings;  // at most kMaxFindings, in the order of the file
  uint64_t damage_count = 0;      // all of them, kept or not
  uint32_t logs = 0;
  uint32_t deleted_logs = 0;
  uint64_t blocks = 0;
  bool clean() const { return damage_count == 0; }
};

inline constexpr size_t kMaxFindings = 1000;

// Expands a block in the stored form: its expanded length, or nothing when it cannot be expanded.
using Expander = std::function<std::optional<uint32_t>(Bytes)>;

// Time is linear in the size of the file and of its expanded blocks; nothing outside the bytes is read.
CheckResult check_format(Bytes file, const Expander& expand);

}  // namespace plov::ctl

#endif
