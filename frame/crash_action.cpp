#include "frame/crash_action.h"

#include <atomic>

namespace plov::frame {
namespace {

std::atomic<struct sigaction*> displaced;
std::atomic<bool> alternate_stacks;

}  // namespace

void displace_crash_action(struct sigaction* remembered) {
  displaced.store(remembered);
}

int read_crash_action(int signal, struct sigaction* action) {
  const struct sigaction* const remembered = signal == SIGSEGV ? displaced.load() : nullptr;
  if (!remembered) return sigaction(signal, nullptr, action);
  *action = *remembered;
  return 0;
}

int write_crash_action(int signal, const struct sigaction* action) {
  if (action->sa_flags & SA_ONSTACK) alternate_stacks.store(true, std::memory_order_relaxed);
  struct sigaction* const remembered = signal == SIGSEGV ? displaced.load() : nullptr;
  if (!remembered) return sigaction(signal, action, nullptr);
  *remembered = *action;
  return 0;
}

bool crashes_on_alternate_stacks() {
  return alternate_stacks.load(std::memory_order_relaxed);
}

}  // namespace plov::frame
