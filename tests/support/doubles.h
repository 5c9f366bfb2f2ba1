// For test programs that define a C library function in its own place.
#ifndef PLOV_TESTS_DOUBLES_H
#define PLOV_TESTS_DOUBLES_H

#include <dlfcn.h>

// The function behind the double, and the one that is called with 64-bit offsets, or times, on either word size.
#define REAL(function) reinterpret_cast<decltype(&function)>(dlsym(RTLD_NEXT, #function))
#define REAL64(function) \
  reinterpret_cast<decltype(&function)>(dlsym(RTLD_NEXT, sizeof(void*) == 4 ? #function "64" : #function))
#define REAL_TIME(function) \
  reinterpret_cast<decltype(&function)>(dlsym(RTLD_NEXT, sizeof(void*) == 4 ? "__" #function "64" : #function))

#endif
