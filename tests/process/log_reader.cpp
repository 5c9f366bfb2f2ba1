// log_reader [LOG]: reads the whole main log, or the one of this name, and prints how many logs it has. Exit status 1
// when it cannot be read.
#include <stdio.h>

#include "support/retrieval.h"

int main(int argc, char** argv) {
  test::Retrieval retrieval(XLOG_OPT_ALL_CLASSES, {}, argc > 1 ? argv[1] : "");
  if (retrieval.run() != 0) fprintf(stderr, "sysrc %d, comprc 0x%X\n", retrieval.sysrc, retrieval.comprc);
  printf("%u\n", retrieval.count);
  return retrieval.sysrc != 0;
}
