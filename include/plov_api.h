/* What every public header of plovsp1 shares: linkage, visibility and packing. C11 and C++20, 32 and 64 bits. */
#ifndef PLOV_API_H
#define PLOV_API_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define PLOV_BEGIN_DECLS extern "C" {
#define PLOV_END_DECLS }
#define PLOV_STATIC_ASSERT(condition, text) static_assert(condition, text)
#else
#define PLOV_BEGIN_DECLS
#define PLOV_END_DECLS
#define PLOV_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#endif

/* A function or datum of the library's interface. */
#define PLOV_API __attribute__((visibility("default")))

/* A record without padding: its fields lie back to back, on both word sizes. */
#define PLOV_PACKED __attribute__((packed))

/* A printf-like function: the compiler checks the arguments against the format. */
#define PLOV_PRINTF(index, first) __attribute__((format(printf, index, first)))

/* True on the console's own ABI, whose record sizes are the reference. */
#if UINTPTR_MAX == 0xFFFFFFFFu
#define PLOV_ILP32 1
#else
#define PLOV_ILP32 0
#endif

/*
 * The convention of every exported function (families xpce, xdfc, xlog, xsim, xbt, xact, xmis):
 *   result `sysrc`  0 success
 *                   1 the `comprc` pointer itself is unusable; nothing is written
 *                   2 a bad argument or a refused request
 *                   8 a failed system service, or a failure that was recorded in the log
 *   `*comprc`       the component's reason code, 0 on success; written on every exit but sysrc 1
 * When several steps fail the larger `sysrc` wins. A bad pointer never ends the process: every pointer argument is
 * probed before use, but where the function's comment says that nothing is. Any function may be called from any thread
 * unless its comment says otherwise; none of them is async-signal-safe unless its comment says so.
 */

#endif
