// map_worker COUNT ID: adds 1 to a 4-byte field COUNT times (0: for ever), each time locking it and writing with the
// override, and reads an 8-byte field whose halves must agree beside it. Exit status 1 when a call fails, 2 when a
// value is mixed.
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>

#include "xsim.h"

namespace {

constexpr uint32_t kPairField = 7;

void add_one(uint32_t id) {
  uint32_t comprc = XSIM_ALREADY_LOCKED;
  while (xsim_lock(id, &comprc) == 0 && comprc == XSIM_ALREADY_LOCKED) sched_yield();
  uint32_t value = 0;
  if (comprc != 0 || xsim_read(id, &value, &comprc) != 2 || comprc != XSIM_FIELD_LOCKED) exit(1);
  ++value;
  if (xsim_write(id, &value, 1, &comprc) != 0) exit(1);
}

void check_pair(uint32_t number) {
  uint32_t pair[2] = {number, number}, comprc;
  if (xsim_write(kPairField, pair, 0, &comprc) != 0 || xsim_read(kPairField, pair, &comprc) != 0) exit(1);
  if (pair[0] != pair[1]) exit(2);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 3;
  const uint32_t count = static_cast<uint32_t>(atoi(argv[1])), id = static_cast<uint32_t>(atoi(argv[2]));
  for (uint32_t i = 0; count == 0 || i < count; ++i) {
    add_one(id);
    check_pair(i * 2654435761u);
  }
  return 0;
}
