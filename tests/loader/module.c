// What the loading tests load: two functions, of which one is exported with an underscore, and a constructor that loads
// in its turn.
#include "xact.h"

void* found_by_constructor;
int32_t constructor_sysrc;

int plain(void) {
  return 1;
}

int _bar(void) {
  return 2;
}

__attribute__((constructor)) static void construct(void) {
  uint32_t comprc;
  constructor_sysrc = xact_get_func_addr("", "dlopen", &found_by_constructor, &comprc);
}
