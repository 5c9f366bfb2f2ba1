#include "say.h"

#include <unistd.h>

#include <chrono>
#include <mutex>
#include <string>

#include "xtr.h"

namespace plov::pced {
namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kLimit = 20;
constexpr std::chrono::minutes kSpan(1);

}  // namespace

void say(std::string_view text) {
  const std::string line = "plovpced: " + std::string(text) + "\n";
  // In one piece. Nobody can be told that nobody can be told.
  [[maybe_unused]] const ssize_t ignored = write(STDERR_FILENO, line.data(), line.size());
  xtr_trace("PCED___F: %.*s", static_cast<int>(text.size()), text.data());
}

void say_sparingly(std::string_view text) {
  static std::mutex mutex;
  static Clock::time_point begin;
  static unsigned said, left_out;
  const std::lock_guard guard(mutex);
  const Clock::time_point now = Clock::now();
  if (now - begin >= kSpan) {
    if (left_out > 0) say(std::to_string(left_out) + " more lines of this kind were left out");
    begin = now;
    said = left_out = 0;
  }
  if (said++ < kLimit)
    say(text);
  else
    ++left_out;
}

}  // namespace plov::pced
