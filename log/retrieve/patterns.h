// The caller's patterns, in memory of our own: they are compared while the log lock is held, where a fault in the
// caller's memory is worst, and a probe tests no more than the end of a range.
#ifndef PLOV_LOG_RETRIEVE_PATTERNS_H
#define PLOV_LOG_RETRIEVE_PATTERNS_H

#include "frame/call.h"
#include "xlog.h"

namespace plov::log {

class Patterns {
 public:
  Patterns() = default;
  ~Patterns();
  Patterns(const Patterns&) = delete;
  Patterns& operator=(const Patterns&) = delete;

  // Probes and copies the chain. False after a refusal, which the call then carries.
  bool take(frame::Call& call, const xlog_pattern* chain);

  const xlog_pattern* first() const { return first_; }

 private:
  xlog_pattern* first_ = nullptr;  // each node is followed by its data and its mask
};

}  // namespace plov::log

#endif
