/*
 * Trace facility of the console platform. One ring for each user, shared by all its processes of both word sizes and
 * kept when they end; the newest lines push out the oldest.
 */
#ifndef XTR_H
#define XTR_H

#include <pthread.h>

#include "plov_api.h"

PLOV_BEGIN_DECLS

/*
 * The process-wide mutex that the probes and the process control environment share. Error-checking: locking it again on
 * the thread that holds it fails with EDEADLK instead of hanging, so a signal that interrupts a holder may try it.
 * A fork waits until no other thread holds it; the child's is fresh.
 */
extern PLOV_API pthread_mutex_t xtr_mutex_sem;

/*
 * Writes one line: time, process and thread are added. Takes no lock and allocates nothing, so it may be called from
 * signal handlers and with any mutex held. `errno` is kept. A line is cut to 480 characters; one newline at its end is
 * dropped. Always returns 0.
 *
 * The format is read as printf reads it, also when no argument follows: every conversion in it needs its argument, and
 * a finished text that may hold a "%" is handed on as the argument of "%s" or with its "%" doubled. What is different:
 * "%n" prints as it stands and writes nothing, "%S" is read as "%s", NULL for a string prints "(null)", an unknown
 * conversion prints as it stands with all that follows. Floating point is printed by the C library and is the one
 * conversion that is not signal-safe.
 */
PLOV_API int32_t xtr_trace(const char* format, ...);

/* Traces `size` bytes as lines of hexadecimal and text, 16 bytes a line. */
PLOV_API int32_t xtr_dump_bytes(const void* bytes, uint32_t size);

/* What a fetch reports in `*code`. */
#define XTR_SHARED_RING 0u  /* the lines of all processes of the user */
#define XTR_OWN_RING 1u     /* the user's ring could not be had: this process keeps its lines to itself */
#define XTR_NO_RING 2u      /* there is no ring (result 8) */
#define XTR_BAD_ARGUMENT 3u /* no buffer, or one above 2 GiB (result 2) */

/*
 * Fetch the newest text of the whole facility, of this process, of this thread: at most `n` x `width` bytes of whole
 * lines, oldest first, each ended by a newline, zero-filled behind. `*count` receives the bytes of text, `*code` one of
 * the codes above; either may be NULL. Result 0, or non-zero when there is no ring. Signal-safe.
 *
 *   2026-05-01 12:34:56.123456Z 4711/4712 XLOG   F: log_file = ...       time in UTC, process/thread, line
 */
PLOV_API int32_t xtr_fetch(char* buffer, uint32_t n, uint32_t width, uint32_t* count, uint32_t* code);
PLOV_API int32_t xtr_fetch_pid(char* buffer, uint32_t n, uint32_t width, uint32_t* count, uint32_t* code);
PLOV_API int32_t xtr_fetch_tid(char* buffer, uint32_t n, uint32_t width, uint32_t* count, uint32_t* code);

/* The same for another process of the user, alive or not. */
PLOV_API int32_t xtr_fetch_of(uint32_t pid, char* buffer, uint32_t n, uint32_t width, uint32_t* count, uint32_t* code);

/* The trace facility's ids of this process and thread (the kernel's). Right in a forked child. Signal-safe. */
PLOV_API uint32_t xtr_getpid(void);
PLOV_API uint32_t xtr_gettid(void);

PLOV_END_DECLS

#endif
