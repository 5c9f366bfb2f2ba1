// Copies between the library and a caller's memory that survive what a probe cannot see: a probe tests only the end of
// a range, and a page may go away after it. A hole makes them return false.
#ifndef PLOV_FRAME_CALLER_MEMORY_H
#define PLOV_FRAME_CALLER_MEMORY_H

#include <stddef.h>

#include "frame/probe.h"

namespace plov::frame {

// Probes the caller's memory and copies it under the same probe. What is to be written back to is probed for writing
// too.
bool take_from_caller(void* to, const void* from, size_t size, Access access = Access::write);

// For memory that was probed before.
bool copy_from_caller(void* to, const void* from, size_t size);
bool copy_to_caller(void* to, const void* from, size_t size);

}  // namespace plov::frame

#endif
