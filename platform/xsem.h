/*
 * Keyed semaphores of the console platform: one lock for all processes of the machine, freed by the kernel when its
 * holder dies.
 */
#ifndef XSEM_H
#define XSEM_H

#include "plov_api.h"

PLOV_BEGIN_DECLS

typedef struct xsem_semaphore* xsem_handle_t;

#define XSEM_WAIT_FOREVER 0xFFFFFFFFu

/* Component codes. Every call that fails has result 8 and one of these. */
#define XSEM_TIMED_OUT 1u          /* not free within the time-out */
#define XSEM_NOT_HOLDER 2u         /* unlock by a thread that does not hold the lock; nothing was changed */
#define XSEM_FOREIGN_SET 3u        /* the key belongs to a set of several semaphores, which is none of ours */
#define XSEM_TOO_MANY 4u           /* more than 32 keys in one process */
#define XSEM_BAD_HANDLE 5u         /* NULL */
#define XSEM_SYSTEM_ERROR 0x10000u /* + errno: EACCES for a set that others made inaccessible, ENOSPC, ... */

/*
 * Gets the semaphore of a key, making it when it is the first to ask. The handle is the process's, the same for every
 * caller, and is never given back.
 */
PLOV_API int32_t xsem_getSemaphoreHandle(xsem_handle_t* handle, uint32_t key, int32_t* crc);

/*
 * Takes the lock, waiting at most `timeout` milliseconds. Exclusive between processes and between threads alike; the
 * thread that holds it may take it again and gives it back as often. EINTR is repeated. A wait of more than 3 s is
 * traced every 3 s. When somebody removed the semaphore it is made again. The lock of a process or thread that ends is
 * free at once; a forked child holds nothing; a program that replaces the holder's (exec) keeps the lock until it ends.
 */
PLOV_API int32_t xsem_lockSemaphore(xsem_handle_t handle, uint32_t timeout, int32_t* crc);

/*
 * Gives one level back. By a thread that does not hold the lock it changes nothing and reports a code. When the
 * semaphore was removed meanwhile the lock is given up and EIDRM or EINVAL reported. Signal-safe.
 */
PLOV_API int32_t xsem_unlockSemaphore(xsem_handle_t handle, int32_t* crc);

PLOV_END_DECLS

#endif
