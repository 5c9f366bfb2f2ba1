/*
 * Process-control kernel of the console platform: what the call frame and the process control environment ask of it.
 *
 * Unless its comment says otherwise a call returns 0, or a non-zero internal result after it has written the reason
 * into the call record: the first `comprc` stays, `sysrc` is raised to 8 at least, `data` explains.
 *
 * In strict C (-std=c11) it needs POSIX.1-2008, _POSIX_C_SOURCE 200809L, for `stack_t`.
 */
#ifndef PCE_H
#define PCE_H

#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>

#include "plov_api.h"

PLOV_BEGIN_DECLS

struct xpce_message;

/* Where an exported call's inner functions leave the reason of the first failure. On the exported call's stack. */
typedef struct pce_call_record {
  uint32_t comprc; /* reason code of the first failure */
  uint32_t sysrc;  /* grade; raised, never lowered */
  uint32_t data;   /* a value that explains the failure */
  uint32_t active; /* 1 */
  char name[64];   /* the exported function */
  uint32_t reserved[2];
  uint32_t crash; /* 1 inside a crash handler: nothing may be allocated or logged */
} pce_call_record;
PLOV_STATIC_ASSERT(sizeof(pce_call_record) == 92, "the call record is passed between libraries");

#define PCE_WAIT_FOREVER 0xFFFFFFFFu

/* Messages and events. */

#define PCE_LINE_SIZE 79u /* of a message line, its NUL included */

/*
 * Formats line `part` (1 or 2) of message `id` with the arguments that follow. `table` holds `count` entries; two
 * consecutive entries of one id are its lines 1 and 2. `*line` receives the text, cut to 78 characters, in memory from
 * pce_malloc; pce_log_event and pce_put_event free it. An id or part that the table does not have gives a line that
 * says so. Without memory `*line` is NULL and the result non-zero.
 */
PLOV_API int32_t pce_lookup_err(pce_call_record* record, uint32_t count, const struct xpce_message* table, char** line,
                                uint32_t id, uint32_t part, ...);

/*
 * Report a failure: two trace lines and one event in the main log. `function` names who found it; the lines are from
 * pce_lookup_err, may be NULL, and are freed. The event is of class 5, type 1, user = the low 16 bits of `id`, named
 * for the function (cut to 12 characters), with two blocks: 0xF0 holds `id` (16 bits) and the record's data word
 * (32 bits), 0x03 the two lines as text. pce_log_event asks for it to be shown as an error; pce_put_event, for failures
 * of lesser weight such as a caller's mistake, does not.
 *
 * The record is only read. While the thread holds `xtr_mutex_sem` through pce_pthd_mutex_req nothing of the log may
 * run: up to 8 events then wait, and are recorded when pce_pthd_mutex_rel has released it; more are only traced, and so
 * is an event in a process without the log. Always 0.
 */
PLOV_API int32_t pce_log_event(const pce_call_record* record, const char* function, char* line1, char* line2,
                               uint32_t id);
PLOV_API int32_t pce_put_event(const pce_call_record* record, const char* function, char* line1, char* line2,
                               uint32_t id);

/* Mutexes and memory. */

/* Locks, waiting at most `timeout` milliseconds. A failure leaves `reason` in the record, with the error as data. */
PLOV_API int32_t pce_pthd_mutex_req(pce_call_record* record, pthread_mutex_t* mutex, uint32_t timeout, uint32_t reason);
PLOV_API int32_t pce_pthd_mutex_rel(pce_call_record* record, pthread_mutex_t* mutex, uint32_t reason);

/* Memory is not cleared. Failure: ENOMEM as reason and the size as data, `*block` NULL. NULL may be freed. */
PLOV_API int32_t pce_malloc(pce_call_record* record, void** block, uint32_t size);
PLOV_API int32_t pce_free(pce_call_record* record, void* block);

/* Signals. */

/* Sets the calling thread's alternate signal stack, or takes it away with SS_DISABLE. */
PLOV_API int32_t pce_sig_alt_stack(pce_call_record* record, const stack_t* stack);

/*
 * Local sockets. The result of a failed call is the errno, and so are the reason and the data that it leaves in the
 * record.
 */

/* Makes a socket, close-on-exec: family 1 is AF_UNIX, type 1 a stream. `*descriptor` is -1 after a failure. */
PLOV_API int32_t pce_socket(pce_call_record* record, int32_t family, int32_t type, int32_t protocol,
                            int32_t* descriptor);

/*
 * Connects; a connect that a signal interrupts is completed. A listener that does not accept for 30 s is ETIMEDOUT.
 */
PLOV_API int32_t pce_connect_hard(pce_call_record* record, int32_t descriptor, const struct sockaddr* address,
                                  uint32_t length);
PLOV_API int32_t pce_soclose(pce_call_record* record, int32_t descriptor);

/*
 * Sends `length` bytes in pieces of at most `piece`, for at most `timeout` milliseconds altogether (then ETIMEDOUT);
 * never raises SIGPIPE. `*sent` receives the bytes that went, also after a failure. `errno` is kept. Signal-safe.
 */
PLOV_API int32_t pce_tmr_send(pce_call_record* record, int32_t descriptor, const void* message, uint32_t length,
                              uint32_t piece, uint32_t* sent, uint32_t timeout);

/* Names. */

/*
 * The program of a process, as its command line names it: at most `size` - 1 characters and a NUL. Failures are as
 * those of the sockets: ENOENT when there is no such process.
 */
PLOV_API int32_t pce_get_progname(pce_call_record* record, uint32_t pid, char* name, uint32_t size);

/*
 * The directory for temporary files and local sockets: PCE_TEMPDIR, else "/tmp/"; ends in "/". A relative PCE_TEMPDIR,
 * and any in a program that runs with another user's rights, counts as unset. Failure: ENAMETOOLONG. The second one is
 * signal-safe and takes no record.
 */
PLOV_API int32_t pce_find_tempdir(pce_call_record* record, char* directory, uint32_t size);
PLOV_API int32_t pce_sig_tempdir(char* directory, uint32_t size);

PLOV_END_DECLS

#endif
