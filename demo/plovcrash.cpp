// plovcrash: a program of the console that meets its end. It sets process control up, tags its thread and reads through
// a null pointer: the daemon is to write what it was doing into the log.
#include <signal.h>
#include <stdio.h>

#include "xpce.h"

namespace station {

struct Door {
  const Door* next;
  int state;
};

// Each a frame of its own in the report, and none in another's tail.
__attribute__((noinline)) int state_of(const Door* door) {
  // NOLINTNEXTLINE(clang-analyzer-core.NullDereference): what this program is for
  const int state = *const_cast<volatile const int*>(&door->state);
  return state + 1;
}

__attribute__((noinline)) int watch(const Door& front) {
  const int state = state_of(front.next);
  return state + 1;
}

}  // namespace station

int main() {
  struct sigaction installed, earlier;
  uint32_t comprc = 0;
  if (const int32_t sysrc = xpce_setup(1, &installed, &earlier, &comprc); sysrc != 0) {
    fprintf(stderr, "plovcrash: xpce_setup: src= 0x%X, crc= 0x%X\n", static_cast<unsigned>(sysrc), comprc);
    return 1;
  }
  xpce_set_user_tag("door watcher", &comprc);
  const station::Door front = {nullptr, 1};
  return station::watch(front);
}
