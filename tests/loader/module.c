// What the loading tests load: two functions, of which one is exported with an underscore, and a constructor that loads
// in its turn, or crashes when the environment says so.
#include <stdlib.h>

#include "xact.h"

void* found_by_constructor;
int32_t constructor_sysrc;
static int* volatile nowhere = (int*)16;

int plain(void) {
  return 1;
}

int _bar(void) {
  return 2;
}

__attribute__((constructor)) static void construct(void) {
  uint32_t comprc;
  if (getenv("PLOV_TEST_MODULE")) *nowhere = 1;
  constructor_sysrc = xact_get_func_addr("", "dlopen", &found_by_constructor, &comprc);
}
