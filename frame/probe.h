// The pointer probes, as the rest of the library calls them. The exported probes of xpce.h are these.
#ifndef PLOV_FRAME_PROBE_H
#define PLOV_FRAME_PROBE_H

#include <stddef.h>
#include <stdint.h>

// Code that reads or writes the caller's memory, whatever state it is in: the sanitizers must not judge the access.
#define PLOV_TOUCHES_FOREIGN_MEMORY \
  __attribute__((no_sanitize("address"), no_sanitize("thread"), no_sanitize("undefined")))

namespace plov::frame {

enum class Access { read, write };

// Tests the end of [address, address + size); see xpce_ckptr for results and codes.
int32_t probe(const void* address, size_t size, Access access, uint32_t* comprc);

// The same test, and under it a copy of the whole range: a hole before its end is a fault like one at its end, and no
// time passes in which the memory could go away. A test that cannot be made counts as passed and leaves `copied` false.
int32_t probe_and_copy(const void* address, size_t size, Access access, void* copy, bool* copied);

// Copies to or from the caller's memory under a probe's guard. `unknown`: there is no guard to be had, and no copy.
enum class Copied { whole, fault, unknown };
Copied copy_foreign(void* to, const void* from, size_t size);

// Tests a string up to its NUL; see xpce_ckstr.
int32_t probe_string(const char* string, uint32_t* length, uint32_t* comprc);

// A probe that goes along a chain of the caller's: setting up a probe costs a hundred times what it does, so a long
// chain is walked under one. Runs `walk`; false when a fault ended it there. It may be left at any access, so it takes
// no lock, allocates nothing, owns nothing, and keeps in volatile fields what must be known after a fault. It holds up
// every other probe of the process: walk a long chain in slices.
bool probe_walk(void (*walk)(void* context), void* context);

// For a crash handler that a signal from outside has started on a thread in the middle of a probe: until it resumes the
// probe, a fault of the thread is the handler's own and must not jump back into the probe. False when the thread makes
// none. Signal-safe.
bool suspend_probe();
void resume_probe();

// For the walks: the test that probe() makes of [address, address + size), writing included.
void touch_end(const void* address, size_t size);

}  // namespace plov::frame

#endif
