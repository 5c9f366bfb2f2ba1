/*
 * Process control environment: the pointer probes and the component's message table.
 * The calling convention stands in plov_api.h.
 */
#ifndef XPCE_H
#define XPCE_H

#include "plov_api.h"

PLOV_BEGIN_DECLS

/* `comprc` values of the probes. A passed probe leaves XPCE_PROBE_* beside result 0: look at the result only. */
#define XPCE_PROBE_WRITABLE 0xCC00u /* write test passed, or could not be made */
#define XPCE_PROBE_READABLE 0xC800u /* read test passed, or could not be made */
#define XPCE_PROBE_FAULT 6u         /* a byte of the range faulted */
#define XPCE_PROBE_WRAP 7u          /* address + size wraps the address space */
#define XPCE_PROBE_STRING_FAULT 2u  /* a byte of the string faulted */

/* A string without a NUL in its first 16 MiB is accepted with this length. */
#define XPCE_STRING_LIMIT 16777216u

/*
 * Tests that the end of [address, address + size) may be read and written: the whole range when size is at most 4, else
 * its last four bytes. The bytes keep their values. Size 0 passes at any address. Result: 0 passed, 1 `comprc` itself
 * faulted, 2 the range faults (XPCE_PROBE_FAULT) or wraps (XPCE_PROBE_WRAP). A probe that cannot be made counts as
 * passed. Probes of all threads run one at a time; the SIGSEGV action and the thread's signal mask are afterwards what
 * they were. Never call a probe while holding `xtr_mutex_sem`.
 */
PLOV_API int32_t xpce_ckptr(const void* address, uint32_t size, uint32_t* comprc);

/* The same, testing only that the bytes may be read. */
PLOV_API int32_t xpce_ckptr_rd(const void* address, uint32_t size, uint32_t* comprc);

/* Both tests in one function: `write` non-zero also tests writing. */
PLOV_API int32_t xpce_internal_ckptr(const void* address, uint32_t size, int32_t write, uint32_t* comprc);

/*
 * Tests that a string may be read up to its NUL and writes its length (without the NUL) through `length`, which is not
 * probed. `comprc` keeps its value when the string is good.
 * Result: 0 good, 1 `comprc` unusable, 2 the string faults (XPCE_PROBE_STRING_FAULT; `length` unwritten).
 */
PLOV_API int32_t xpce_ckstr(const char* string, uint32_t* length, uint32_t* comprc);

/* The component's failure texts: two consecutive entries (line 1, line 2) share an id; the last entry is a sentinel. */
typedef struct xpce_message {
  uint32_t id;
  char text[132]; /* printf format, NUL-terminated */
} xpce_message;

typedef struct xpce_message_info {
  uint32_t count; /* entries, sentinel included */
  const xpce_message* table;
} xpce_message_info;

extern PLOV_API const xpce_message err_list[21];
extern PLOV_API const xpce_message_info err_info;

PLOV_END_DECLS

#endif
