// How a verb ends.
#ifndef PLOV_CTL_FAILURE_H
#define PLOV_CTL_FAILURE_H

#include <stdexcept>
#include <string>

#include "codes.h"

namespace plov::ctl {

enum Exit : int { kDone = 0, kFailed = 1, kUsage = 2, kDamage = 3, kNothing = 4 };

class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string& text, Exit exit_code = kFailed) : std::runtime_error(text), exit_(exit_code) {}
  Exit exit_code() const { return exit_; }

 private:
  Exit exit_;
};

class Usage : public Failure {
 public:
  explicit Usage(const std::string& text) : Failure(text, kUsage) {}
};

// A library call that did not succeed: what was called, on what, both codes with their meaning, what to do.
class CallFailure : public Failure {
 public:
  CallFailure(const std::string& call, const std::string& on, Family family, int32_t sysrc, uint32_t comprc)
      : Failure(call + (on.empty() ? "" : " (" + on + ")") + ": " + explain_result(family, sysrc, comprc) +
                advice(family, comprc)) {}

 private:
  static std::string advice(Family family, uint32_t comprc) {
    const auto codes = find_codes(family, comprc);
    return codes.empty() ? "" : std::string("\n  ") + codes[0]->action;
  }
};

}  // namespace plov::ctl

#endif
