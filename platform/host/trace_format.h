// printf for trace lines: what the C library's does, but async-signal-safe, bounded, and harmless where that one is
// not.
#ifndef PLOV_HOST_TRACE_FORMAT_H
#define PLOV_HOST_TRACE_FORMAT_H

#include <stdarg.h>
#include <stddef.h>

namespace plov::host {

// Formats into `out`, at most `size` bytes, no NUL behind; returns the bytes written. Takes no lock and allocates
// nothing, except for floating point, which the C library prints.
//   %d %i %u %o %x %X %c %s %p %%, flags "-+ #0'", width and precision (also *), lengths hh h l ll j z t L
//   %S and %ls  are read as %s; NULL prints "(null)"; no more of a string is read than fits
//   %n          prints as it stands; its pointer is passed over, nothing is written through it
// Any other conversion prints as it stands with all that follows: which argument belongs to what is no longer known.
size_t format_line(char* out, size_t size, const char* format, va_list arguments);

}  // namespace plov::host

#endif
