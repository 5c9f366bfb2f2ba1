/*
 * Process control environment: the set-up of processes and threads, crash reports and user exits, the pointer probes,
 * and the component's message table. The calling convention stands in plov_api.h.
 *
 * In strict C (-std=c11) it needs POSIX.1-2008, _POSIX_C_SOURCE 200809L, for `struct sigaction`.
 */
#ifndef XPCE_H
#define XPCE_H

#include <pthread.h>
#include <signal.h>

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

/*
 * Set-up. A process and each of its threads call xpce_setup before other work and xpce_unset at the end. The first
 * set-up of a process registers it with the process-control daemon and handles ten signals: SIGABRT, SIGBUS, SIGFPE,
 * SIGILL, SIGQUIT, SIGPIPE, SIGSEGV, SIGTERM, SIGXCPU, SIGXFSZ, but for those that it ignores. The last unset undoes
 * both. Each thread that is set up gets an alternate signal stack: without one, the overflow of its stack is not
 * reported.
 *
 * The first crash of a process changes to the directory for core files, sends one report to the daemon, calls the first
 * user exit, and sends the signal again under the action that was in force before set-up. A thread that crashes
 * meanwhile waits 60 seconds for that. SIGTERM goes the same way but sends no report. What a Java VM takes for itself
 * is no crash.
 */

/* What a process is; it chooses the handler, and so the id under which its crash is reported. */
#define XPCE_PROC_TEMPORARY 0u
#define XPCE_PROC_PERMANENT 1u
#define XPCE_PROC_ANALYSIS 2u /* problem analysis */
#define XPCE_PROC_NOASYNC 3u  /* threads may end without their unsets */

/* `comprc` of the set-up calls; 0x700 to 0x716 are also message numbers of `err_list`. */
#define XPCE_BAD_PROCESS_TYPE 0x7D2u   /* above 3; the process is set up, as a temporary one */
#define XPCE_NO_ACTIVE_SETUP 0x2000u   /* unset without a set-up in the process */
#define XPCE_NO_THREAD_SETUP 0x2001u   /* unset on a thread that has none */
#define XPCE_BAD_TAG 0x2100u           /* the tag cannot be read */
#define XPCE_BAD_TAG_LENGTH 0x2101u    /* empty, or longer than 82 characters; it is stored all the same */
#define XPCE_BAD_NEW_ACTION 0x2200u    /* `new_action` is not usable memory */
#define XPCE_BAD_OLD_ACTION 0x2201u    /* `old_action` is not usable memory */
#define XPCE_NO_LOCK 0x750u            /* `xtr_mutex_sem` could not be had */
#define XPCE_SHORT_SEND 0x700u         /* a message to the daemon went in part */
#define XPCE_SHORT_TOTAL 0x701u        /* the pieces of a message did not make it whole */
#define XPCE_NO_KEY 0x710u             /* no key for the threads' records */
#define XPCE_RECORD_NOT_STORED 0x712u  /* a thread's record could not be stored */
#define XPCE_NOT_REGISTERED 0x713u     /* no connection to the daemon, or the registration was not sent */
#define XPCE_NOT_DEREGISTERED 0x714u   /* the de-registration was not sent */
#define XPCE_UNBALANCED_THREAD 0x715u  /* in an event only: a thread ended without its unsets */
#define XPCE_DEREGISTER_SKIPPED 0x716u /* a crash is being handled; `sysrc` is not raised */

/*
 * Counts one set-up of the calling thread, and of the process. The first of the process clears both records, fills
 * `new_action` with what it installs and puts it into force; later ones leave them alone. After a failure (8) nothing
 * is set up. A type above 3 is refused with 2 and still sets up, as type 0: it needs its unset. The acknowledgement of
 * the daemon is waited for, for 30 seconds at most; one that stays out is only traced.
 */
PLOV_API int32_t xpce_setup(uint16_t process_type, struct sigaction* new_action, struct sigaction* old_action,
                            uint32_t* comprc);

/* Takes one back. The last one of the process clears `action` and puts the earlier actions back into force. */
PLOV_API int32_t xpce_unset(struct sigaction* action, uint32_t* comprc);

#define XPCE_TAG_LIMIT 82u /* characters */

/* Names the calling thread in crash reports. A longer tag is cut to 83 characters. */
PLOV_API int32_t xpce_set_user_tag(const char* tag, uint32_t* comprc);

/* Called in a crash with what the handler was called with; it must be safe in a signal handler. */
typedef void (*xpce_user_exit)(int signal, siginfo_t* information, void* context);

/*
 * Append a user exit, or take one away. In a crash only the first registered one is called. Two bytes of `comprc` are
 * all that they need, and if there are no more, all that they write. Result 2: registered already, not registered
 * (`comprc` 0), or the lock failed (`comprc` is its error, ENOMEM that there is no memory).
 */
PLOV_API int32_t xpce_add_user_exit(xpce_user_exit exit, uint32_t* comprc);
PLOV_API int32_t xpce_remove_user_exit(xpce_user_exit exit, uint32_t* comprc);

/*
 * What follows is for the library itself and for whoever looks at a process from outside. It probes nothing.
 */

/* The handlers of the four process types, 0 to 3. */
PLOV_API void xpce_tempHandler(int signal, siginfo_t* information, void* context);
PLOV_API void xpce_permHandler(int signal, siginfo_t* information, void* context);
PLOV_API void xpce_paHandler(int signal, siginfo_t* information, void* context);
PLOV_API void xpce_noasyncHandler(int signal, siginfo_t* information, void* context);

/* What a report says of its process besides its text. */
typedef struct xpce_process_information {
  int32_t pid;
  int32_t parent_pid;
  pthread_t thread;
  char name[128]; /* the program, not NUL-terminated when it is longer */
} xpce_process_information;

/*
 * The text of an exception report and the copies of its stack frames: `text` has 4,096 bytes, `stack` 20,480, `context`
 * is the handler's or NULL. Fills the program's name in, and changes to the directory for core files. Signal-safe.
 */
PLOV_API void xpce_convert_data(char* text, uint32_t* text_length, uint8_t* stack, uint32_t* stack_length,
                                xpce_process_information* process, int32_t signal, const siginfo_t* information,
                                const void* context, const char* tag);

/* Ends a thread's record: the destructor of `gl_thd_data_key`. Takes back what the thread has left set up. */
PLOV_API void xpce_thd_data_free(void* thread_record);

extern PLOV_API pthread_key_t gl_thd_data_key; /* each thread's record, valid once a set-up, unset or tag was tried */
extern PLOV_API int32_t gl_daemon_sock;        /* the connection to the daemon, -1 when there is none */
extern PLOV_API int32_t gl_use_alt_stack;      /* 1: threads get alternate signal stacks */

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

#if PLOV_ILP32
PLOV_STATIC_ASSERT(sizeof(struct sigaction) == 140, "the console's own");
PLOV_STATIC_ASSERT(sizeof(xpce_process_information) == 140, "four fields without padding");
#endif

PLOV_END_DECLS

#endif
