// log_reader: reads the whole main log and prints how many logs it has. Exit status 1 when it cannot be read.
#include <stdio.h>

#include "support/retrieval.h"

int main() {
  test::Retrieval retrieval;
  if (retrieval.run() != 0) fprintf(stderr, "sysrc %d, comprc 0x%X\n", retrieval.sysrc, retrieval.comprc);
  printf("%u\n", retrieval.count);
  return retrieval.sysrc != 0;
}
