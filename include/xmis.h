/*
 * Program spawning. The calling convention stands in plov_api.h.
 */
#ifndef XMIS_H
#define XMIS_H

#include "plov_api.h"

PLOV_BEGIN_DECLS

/* The one flag: wait for the program's end. Any other bit is refused. */
#define XMIS_SPAWN_WAIT INT32_MIN

/* `comprc` values, all with sysrc 2. */
#define XMIS_BAD_PARAMETERS 1u     /* the parameter block is not usable memory; nothing is written to it */
#define XMIS_BAD_FLAGS 2u          /* a flag other than XMIS_SPAWN_WAIT */
#define XMIS_BAD_PROGRAM 3u        /* the program's name is unreadable or empty */
#define XMIS_BAD_ENVIRONMENT 4u    /* an environment is given but is not usable memory */
#define XMIS_BAD_ARGUMENTS 5u      /* the argument vector is missing or cannot be read up to its NULL */
#define XMIS_SPAWN_FAILED 0x100u   /* the program could not be started; `reason` is the errno */
#define XMIS_WAIT_FAILED 0x101u    /* waiting failed; `reason` is the errno */
#define XMIS_STILL_RUNNING 0x102u  /* the time limit is over and the program still runs; `reason` is 0 */
#define XMIS_CHILD_VANISHED 0x103u /* someone else took the program's status (SIGCHLD ignored); `reason` is ECHILD */

typedef struct xmis_spawn_parameters {
  const char* program; /* looked for along the caller's PATH unless it holds a "/" */
  char* const* argv;   /* ends with NULL; argv[0] is by custom the program's name */
  char* const* envp;   /* ends with NULL; NULL for the caller's own environment. Must be writable memory. */
  int32_t flags;       /* 0 or XMIS_SPAWN_WAIT */
  uint32_t time_limit; /* in seconds, for the wait */
  int32_t pid;         /* out: the child */
  int32_t status;      /* out: its raw status as waitpid gives it, once it has ended */
  uint32_t reason;     /* out: an errno, or 0 */
} xmis_spawn_parameters;
#if PLOV_ILP32
PLOV_STATIC_ASSERT(sizeof(xmis_spawn_parameters) == 32, "the parameter block has 32 bytes");
#endif

/*
 * Starts a program and returns at once with its pid, or, with XMIS_SPAWN_WAIT, when the program has ended or the time
 * limit is over. The block and the lists stay the caller's; the lists' strings are not probed (a bad one is
 * XMIS_SPAWN_FAILED with EFAULT).
 *
 * Probed in this order: comprc, the block, flags, program, envp, argv. The three out fields are cleared before argv is
 * looked at; `reason` is set on every return that finds the block usable.
 *
 * The child inherits working directory, signal mask, ignored signals and every descriptor that is not close-on-exec;
 * the library's own are. It is never killed. Without the wait, and after XMIS_STILL_RUNNING, reaping it is the
 * caller's.
 *
 * The end is looked for every 5 seconds at most, with `sleep` between: a limit of 12 looks at 0, 5, 10 and 12 seconds.
 * A limit of 0 looks twice without a pause. A signal handler that runs on the waiting thread cuts one sleep short; the
 * next look is then early and the whole wait that much shorter. Only the child's own pid is waited for.
 */
PLOV_API int32_t xmis_spawn_pgm(xmis_spawn_parameters* parameters, uint32_t* comprc);

PLOV_END_DECLS

#endif
