/*
 * Dynamic loading: a function in a shared module that is named loosely, so that optional code is called without being
 * linked to.
 *
 * These functions probe nothing: a bad pointer faults in the caller. The look-ups write `comprc` on failure only.
 * Results are otherwise those of plov_api.h.
 *
 * Modules stay loaded for the life of the process, so an address once handed out stays good.
 *
 * Threads. Every call of the dynamic loader is made under `xact_mutex_sem`; a look-up is several such calls, and others
 * may come between. A module's constructor runs inside the call that loads it and may use these functions itself; one
 * that waits for another thread's use of them waits for ever.
 */
#ifndef XACT_H
#define XACT_H

#include <pthread.h>

#include "plov_api.h"

PLOV_BEGIN_DECLS

/* `comprc` of both look-ups: the module or the function was not found. */
#define XACT_NOT_FOUND 1u

/* Held around each single dlopen, dlsym and dlerror. Recursive, ready before any constructor runs. */
extern PLOV_API pthread_mutex_t xact_mutex_sem;

/*
 * Finds `function` in `module`, which is loaded with RTLD_NOW and RTLD_GLOBAL. The module may be named "foo", "foo.so"
 * or "libfoo.so": it is tried as it stands, then, unless it ends in ".so", with ".so" behind it (names below 252
 * characters), then with "lib" before it as well (below 249, and not already beginning with "lib"). The function is
 * tried as it stands, then with "_" before it (names below 257 characters).
 *
 * Result: 0 found, `*comprc` keeps its value; 2 not found, `*comprc` is XACT_NOT_FOUND and `*address` NULL. A missing
 * function whose name has 257 characters or more is not reported: result 0 with `*address` NULL.
 *
 * The second form also hands back the module's handle: NULL when no module was loaded, the module's also when only the
 * function was not found. There is nothing to give back.
 */
PLOV_API int32_t xact_get_func_addr(const char* module, const char* function, void** address, uint32_t* comprc);
PLOV_API int32_t xact_get_func_addr2(const char* module, const char* function, void** address, void** handle,
                                     uint32_t* comprc);

/* The end of a caller's use of a function. Unloads nothing; always 0 with `*comprc` 0. */
PLOV_API int32_t xact_release_func_addr(void* address, void* handle, uint32_t* comprc);

/*
 * dlopen, dlsym and dlerror under the mutex, for callers who load by themselves. A relative search path and RTLD_NEXT
 * count from this library, not from its caller. The text of xact_dlerror is the loader's: it stays good until the
 * thread's next call of the loader.
 */
PLOV_API void* xact_dlopen(const char* file, int32_t flags);
PLOV_API void* xact_dlsym(void* handle, const char* symbol);
PLOV_API char* xact_dlerror(void);

/* Closes nothing; always 0. */
PLOV_API int32_t xact_dlclose(void);

PLOV_END_DECLS

#endif
