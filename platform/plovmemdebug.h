/*
 * Debug allocator of the console platform: knows the size, source and line of each block it gave out, and finds
 * overruns, double frees and foreign frees at free time. Thread-safe; not signal-safe. A fault found is traced, and the
 * block is left alone.
 */
#ifndef PLOVMEMDEBUG_H
#define PLOVMEMDEBUG_H

#include "plov_api.h"

PLOV_BEGIN_DECLS

/*
 * Memory is not cleared and is aligned to 8 bytes. NULL with errno set when there is none. A block of size 0 is a
 * block. `file` must outlive the block: pass __FILE__. A realloc that fails, or finds a fault, leaves the old block as
 * it was.
 */
PLOV_API void* plovmemdebug_malloc(size_t size, const char* file, int32_t line);
PLOV_API void* plovmemdebug_realloc(void* block, size_t size, const char* file, int32_t line);

/*
 * NULL is allowed. A block that this allocator does not know goes to the C library's free; an address that neither can
 * have given out is traced and left alone.
 */
PLOV_API void plovmemdebug_free(void* block, const char* file, int32_t line);

/* Calls `visit` for each block still held; returns their number. `visit` may be NULL and must not allocate here. */
PLOV_API uint32_t plovmemdebug_list(void (*visit)(const void* block, size_t size, const char* file, int32_t line,
                                                  void* context),
                                    void* context);

PLOV_END_DECLS

#endif
