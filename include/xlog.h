/*
 * The event log: recording, reading back, and the steps that the log manager's own functions share. The calling
 * convention stands in plov_api.h, the file's layout in xlog_format.h.
 *
 * Log file names (`target_session`): "" or "log" in any case is the main log "wexolog.log"; a short name of at most 4
 * characters is the file "wexo" + name + ".log"; a name that begins with "!" is used as it stands behind the "!" (found
 * through the path table when it holds no "/").
 *
 * Locks. Every log operation of every process runs alone, under one machine-wide lock that its holder may take again.
 * The lock is free the moment its holder dies.
 */
#ifndef XLOG_H
#define XLOG_H

#include <stdio.h>

#include "xlog_format.h"

PLOV_BEGIN_DECLS

/* The error record of a log operation. */

#define XLOG_LEVEL_NONE 0u    /* no failure recorded */
#define XLOG_LEVEL_REPORT 1u  /* report only */
#define XLOG_LEVEL_DAMAGED 2u /* the file is damaged: to be saved and begun anew */
#define XLOG_LEVEL_RECORD 4u  /* an error log is to be recorded */

/* Zeroed and given `target_session` by whoever begins an operation; carries the open file and the first failure. */
typedef struct xlog_err_interface {
  uint16_t error_id;     /* reason code, 0 none */
  uint32_t error_reason; /* detail: an errno, a byte count, a length */
  uint16_t error_level;  /* XLOG_LEVEL_* */
  FILE* file_handle;     /* the open log file; NULL when closed. The only place where a stream is current. */
  char target_session[2048];
} xlog_err_interface;

/* Recording. */

/* Request flags. */
#define XLOG_HARDWARE_BLOCK_FLAG 0x0010u   /* traced only */
#define XLOG_PROBLEM_ANALYSIS_FLAG 0x0100u /* to be reported to problem analysis, see xlog_report_error */
#define XLOG_STANDARD_LOG_FLAG 0x0200u     /* adds the standard block: the recording process */
#define XLOG_MODIFY_BLOCK_FLAG 0x0400u     /* adds a zeroed block of id 0 for later in-place updates */
#define XLOG_DISPLAY_AS_ERROR_FLAG 0x0800u

/* One block of the caller's. The chain is the caller's and is not changed. A node of size 0 has no data to check. */
typedef struct xlog_data_node {
  uint32_t data_size; /* bytes; cut to XLOG_MAX_BLOCK_SIZE when stored */
  uint8_t block_id;
  const void* data_ptr;
  struct xlog_data_node* next;
} xlog_data_node;

typedef struct PLOV_PACKED xlog_log_request {
  uint16_t flags;
  xlog_eventid eventid;     /* class 0xAA comes back as 0xE5, class 0x0A as 0xE4 */
  xlog_timestamp timestamp; /* out: the stamp that the log was given */
  char event_name[XLOG_NAME_SIZE];
  char target_session[2049]; /* target log file, see above */
  xlog_data_node* data;      /* first block, or NULL */
} xlog_log_request;

/* `comprc` values of xlog_record. */
#define XLOG_RECORD_BAD_REQUEST 0x1101u
#define XLOG_RECORD_BAD_NODE 0x1102u
#define XLOG_RECORD_BAD_DATA 0x1103u
#define XLOG_RECORD_HEADER_ERROR 0x1400u /* writing the log header: stream error; + 1: written short */
#define XLOG_RECORD_HEADER_SHORT 0x1401u
#define XLOG_RECORD_BLOCK_ERROR 0x1402u
#define XLOG_RECORD_BLOCK_SHORT 0x1403u
#define XLOG_RECORD_OWN_BLOCK_ERROR 0x1404u /* UTC offset block or standard block */
#define XLOG_RECORD_OWN_BLOCK_SHORT 0x1405u
#define XLOG_RECORD_MODIFY_ERROR 0x1406u
#define XLOG_RECORD_MODIFY_SHORT 0x1407u
#define XLOG_RECORD_FILE_HEADER_ERROR 0x1408u
#define XLOG_RECORD_FILE_HEADER_SHORT 0x1409u
#define XLOG_RECORD_READ_ERROR 0x1500u /* reading the file header */
#define XLOG_RECORD_READ_SHORT 0x1501u
#define XLOG_RECORD_NO_MODIFY_MEMORY 0x1700u
#define XLOG_RECORD_NO_INPUT_MEMORY 0x1701u
#define XLOG_RECORD_NO_OUTPUT_MEMORY 0x2708u
#define XLOG_RECORD_TOO_MANY_BLOCKS 0x1800u
#define XLOG_RECORD_TOO_LARGE 0x1801u /* larger than the file's largest single log */
#define XLOG_RECORD_NO_ROOM 0x1802u   /* the file is full, and nothing in it may be deleted */

/* `error_id` values of the recorder beside those; `comprc` is the encoder's. */
#define XLOG_RECORD_ENCODE_FAILED 0x1901u
#define XLOG_RECORD_STANDARD_ENCODE_FAILED 0x1902u

/*
 * Writes one event into a log file, creating the file when needed and making room in it when it is full. When the call
 * has returned 0 the event is in the file, whatever happens to the process; before that it is there whole or not at
 * all. Takes at least 10 ms: that keeps two events of one process a hundredth of a second apart.
 *
 * An event of class 0 is copied to the system log (ident "QRL", user facility, informational) when a file named
 * "SyslogSystemEvents" lies beside the main log at the process's first such event: as the text that the Java side makes
 * of it, whether or not the log file takes it. No Java side, no copy.
 *
 * Java is called after the log lock has been given back. For a thread that holds the lock beyond this call, copy and
 * report wait until it has released its last level.
 */
PLOV_API int32_t xlog_record(xlog_log_request* request, uint32_t* comprc);

/* Fills the standard block of this process and the time stamp of a log being recorded; sleeps 10 ms. Probes nothing. */
PLOV_API void xlog_get_standard(xlog_standard_block* block, xlog_timestamp* timestamp);

/* System events: logs of class 0 whose blocks are the substitution variables of a message. */

/* Options, beside the request flags, which are passed on. */
#define XLOG_MAIN_LOG_FLAG 0x0008u      /* to the main log, whatever `target_session` says */
#define XLOG_KEEP_INFORMATIONAL 0x1000u /* type 1 in place of 0 */

/* Kinds of variable: what is stored. A variable of length 0 is an empty text, whatever its kind. */
#define XLOG_VARIABLE_TEXT 1u      /* the bytes and a NUL; also of an unknown kind */
#define XLOG_VARIABLE_CONVERTED 2u /* the bytes translated from code page 500 to 850, and a NUL */
#define XLOG_VARIABLE_HEX 3u       /* the bytes as hexadecimal text, and a NUL */
#define XLOG_VARIABLE_EMPTY 4u     /* a NUL */

/* One variable of the caller's. The chain is not changed. */
typedef struct xlog_variable {
  uint32_t kind;
  uint16_t length; /* bytes */
  const void* data;
  struct xlog_variable* next;
} xlog_variable;

typedef struct xlog_system_event {
  uint16_t options;
  uint16_t reserved;
  uint16_t user; /* the event's user code, also the number in the tower block */
  char event_name[XLOG_NAME_SIZE];
  char target_session[2048];
  xlog_variable* variables; /* first, or NULL; 252 fit into a log */
  const char* tower;        /* text, or NULL: no tower block */
} xlog_system_event;

typedef struct xlog_e4_system_event {
  uint16_t options;
  uint16_t reserved;
  uint16_t user;
  char event_name[XLOG_NAME_SIZE];
  char target_session[2048]; /* not looked at */
  xlog_variable* variables;
  uint32_t extra_size; /* bytes; 0: no extra block */
  const void* extra_data;
  const char* tower;
} xlog_e4_system_event;

/* `comprc` values beside those of xlog_record. A tower text that cannot be read counts as a node's data. */
#define XLOG_SYSEVENT_BAD_REQUEST 1001u
#define XLOG_SYSEVENT_BAD_NODE 1002u
#define XLOG_SYSEVENT_BAD_DATA 1003u
#define XLOG_E4_SYSEVENT_BAD_REQUEST 1004u
#define XLOG_E4_SYSEVENT_BAD_EXTRA 1005u
#define XLOG_E4_SYSEVENT_BAD_NODE 1006u
#define XLOG_E4_SYSEVENT_BAD_DATA 1007u

/*
 * Records a system event in the log that it names, and in "e4". The blocks in the log's order: tower, extra data
 * (XLOG_EXTRA_DATA_BLOCK_ID), number of variables (4 bytes), the variables from the last, of block id 2 + its number,
 * to the first. The result is that of xlog_record.
 */
PLOV_API int32_t xlog_sysevent(const xlog_system_event* event, uint32_t* comprc);
PLOV_API int32_t xlog_e4_sysevent(xlog_e4_system_event* event, uint32_t* comprc);

/* One message: its texts are terminated. */
typedef struct xlog_message_reference {
  const char* bundle;
  const char* key;
  uint32_t count; /* of substitution variables */
  const char* const* texts;
} xlog_message_reference;

typedef struct xlog_event_data_details {
  uint8_t** cursor; /* address of where to write; moves behind the last byte written */
  uint32_t count;
  const xlog_message_reference* references;
} xlog_event_data_details;

#define XLOG_EVENT_DATA_BAD_DETAILS 1011u
#define XLOG_EVENT_DATA_BAD_CURSOR 1012u
#define XLOG_EVENT_DATA_BAD_REFERENCE 1013u
#define XLOG_EVENT_DATA_NO_ROOM 1014u /* for an entry's length */
#define XLOG_EVENT_DATA_BAD_BUNDLE 1015u
#define XLOG_EVENT_DATA_NO_BUNDLE_ROOM 1016u
#define XLOG_EVENT_DATA_BAD_KEY 1017u
#define XLOG_EVENT_DATA_NO_KEY_ROOM 1018u
#define XLOG_EVENT_DATA_BAD_VARIABLE 1019u /* the place of a variable's address */
#define XLOG_EVENT_DATA_BAD_TEXT 1020u
#define XLOG_EVENT_DATA_NO_VARIABLE_ROOM 1021u

/*
 * Packs message references into the caller's area, each as: length of what follows, bundle, key, variables; each of
 * these is its length and its bytes without a NUL. A length is 2 bytes, most significant first; of a text of 64 KB or
 * more the low 16 bits count. Ends at the first failure: what was written stays, the cursor stands behind it.
 */
PLOV_API int32_t xlog_append_event_data(const xlog_event_data_details* details, uint32_t* comprc);

/* Problem analysis: the Java side's listener is told of an event, or a crash file keeps it. */

#define XP11_BAD_EVENT 0x1u         /* the event block cannot be read */
#define XP11_NOT_TOLD 0x11Cu        /* the listener was not told; a crash file was attempted */
#define XP11_CRASH_WRITE 0x11Du     /* writing the crash file failed */
#define XP11_CRASH_CLOSE 0x11Eu     /* closing it failed */
#define XP11_CRASH_DIRECTORY 0x120u /* its directory could not be made */
#define XP11_CRASH_CREATE 0x121u    /* the file could not be created */

/*
 * Reports a recorded event: its identity as the request holds it after xlog_record, with error id and reason from the
 * first 6 bytes of the chain's first block of id XLOG_ERROR_BLOCK_ID. Without such a block, or when the chain cannot be
 * read, both are 0. An unusable request is XLOG_RECORD_BAD_REQUEST; otherwise the result is that of xp11_request.
 * xlog_record calls it for a request with XLOG_PROBLEM_ANALYSIS_FLAG.
 */
PLOV_API int32_t xlog_report_error(const xlog_log_request* request, uint32_t* comprc);

/*
 * Tells the problem-analysis listener of an event. System information field 91 is the switch: 1 on, any other value
 * off, which is success. Result 8 with XP11_NOT_TOLD when the field or the listener cannot be reached; the event is
 * then left in a crash file. Problem analysis never hears of an event of class 0x0A and type 0x15. A thread that holds
 * one of the library's locks is answered 0 and the listener told after the last release. The other arguments are not
 * looked at; the recorder passes 100 and 0.
 */
PLOV_API int32_t xp11_request(uint32_t* comprc, uint32_t reserved1, const xlog_event_identity* event,
                              uint32_t reserved2, uint16_t error_id, uint32_t error_reason);

/*
 * Leaves the event in a crash file (xlog_format.h) in the directory that the path table gives for "PA_CRASH_PATH", else
 * in CONSOLE_PATH + "/data/pa/crash/", which is made when it is missing. A file that exists is never overwritten: a
 * second event of one hundredth of a second takes the next hundredth for its name. `a`, `b` and `code` are not looked
 * at. Result 0, 1 or 2.
 */
PLOV_API int32_t xp11_critical(uint32_t* comprc, const xlog_event_identity* event, uint8_t a, uint8_t b, uint16_t code,
                               uint32_t return_code);

/* The microcode log: what a component leaves of an internal error of its own code. */

/* Options. The low 16 bits are request flags too. */
#define XLOG_MICROCODE_ALWAYS 0x0020u           /* whatever system information field 16 says */
#define XLOG_MICROCODE_NO_BACKTRACE 0x0040u     /* no backtrace block */
#define XLOG_MICROCODE_RESTART_1 0x0080u        /* a restart of kind 1 afterwards */
#define XLOG_MICROCODE_RESTART_2 0x1000u        /* a restart of kind 2 afterwards */
#define XLOG_MICROCODE_NO_THREAD_TRACE 0x2000u  /* no trace block of the thread (0xED); cleared by the call */
#define XLOG_MICROCODE_NO_PROCESS_TRACE 0x4000u /* none of the process (0xEE); cleared by the call */
#define XLOG_MICROCODE_NO_TRACE 0x8000u         /* none of the whole facility (0xEF); cleared by the call */

typedef struct xlog_microcode_request {
  uint8_t type;
  uint8_t reserved1;
  uint16_t user;
  uint32_t options;
  char event_name[XLOG_NAME_SIZE];
  uint16_t error_code; /* with the extension the reference code that service staff see */
  uint16_t reserved2;
  uint32_t extension;
  const void* data;   /* block 3 */
  uint32_t data_size; /* bytes; 0: none */
  char target_session[2048];
  xlog_data_node* chain;    /* further blocks, or NULL */
  xlog_timestamp timestamp; /* out: the entry's stamp */
} xlog_microcode_request;

/* Of the caller's own pointers: also the error codes of the entries ("LIC log Err") that tell of them. */
#define XLOG_MICROCODE_BAD_COMPRC 0x8001u
#define XLOG_MICROCODE_BAD_REQUEST 0x8002u
#define XLOG_MICROCODE_BAD_DATA 0x8003u /* in an entry only: the caller's own goes on without its data */

/*
 * Records an entry with error code, extension, data, the caller's blocks, a backtrace and the recent trace. Class 10,
 * stored as 0xE4. Recorded is nothing, with result 0, while system information field 16 is not 0. Result 8 for an
 * unusable request; else xlog_record's. `errno` is kept.
 */
PLOV_API int32_t xlog_microcode_log(xlog_microcode_request* request, uint32_t* comprc);

/* The same for another class. */
PLOV_API int32_t xlog_microcode_log2(xlog_microcode_request* request, uint8_t event_class, uint32_t* comprc);

/*
 * Sets `*text` to the calling thread's stack, at most 50 frames without the first `skip`, this function's own being the
 * first: a line "at module(name+offset) [address]" for each, the offset and what follows twice where the name was made
 * readable. 65,280 bytes, to be freed with plovmemdebug_free; NULL when there is no memory. Always 0.
 */
PLOV_API int32_t xlog_get_backtrace(char** text, uint32_t skip, uint32_t* comprc);

/* The position behind the last byte of `buffer` that is not 0, at least 1. Probes nothing. */
PLOV_API uint32_t xlog_get_block_size(const char* buffer, uint32_t size);

/* Copies the main log, "wexoe4.log" and the compressed copies to files of the same names behind "cduffdc_". 0, or 8
 * when a failure was logged: error codes 0x4901 to 0x4904 of a microcode log. Probes nothing. */
PLOV_API int32_t xlog_take_snapshot(void);
#define XLOG_SNAPSHOT_LOCK 0x4901u
#define XLOG_SNAPSHOT_MAIN 0x4902u
#define XLOG_SNAPSHOT_E4 0x4903u
#define XLOG_SNAPSHOT_COMPRESSED 0x4904u

/* Changing a log in place. */

/* All nine bytes of the identity must be equal. A log that is marked as deleted is found too. */
typedef struct PLOV_PACKED xlog_update_request {
  uint16_t flags; /* not used */
  xlog_event_identity identity;
  uint8_t unused;
  uint32_t data_size; /* bytes */
  char target_session[2048];
  const void* data;
} xlog_update_request;

typedef struct PLOV_PACKED xlog_update_type_request {
  uint16_t flags; /* not used */
  xlog_event_identity identity;
  uint8_t new_type;
  char target_session[2048];
} xlog_update_type_request;

typedef struct PLOV_PACKED xlog_mark_request {
  uint16_t flags; /* not used */
  xlog_event_identity identity;
  char target_session[2049];
} xlog_mark_request;

/* `comprc` values beside success (sysrc 0): nothing was written. */
#define XLOG_UPDATE_NOT_FOUND 8u
#define XLOG_UPDATE_NO_MODIFY_BLOCK 15u

/* `comprc` values and, of the chain, `error_id` values of the three: xlog_update_log, _type, xlog_mark_log_for_delete.
 */
#define XLOG_UPDATE_LOG_BAD_REQUEST 0x5101u /* also its data */
#define XLOG_UPDATE_LOG_BAD_LINK 0x5202u    /* a link of the class chain does not point below its log */
#define XLOG_UPDATE_LOG_BAD_START 0x5203u   /* the class chain begins outside the file */
#define XLOG_UPDATE_LOG_NO_LOCK 0x5300u
#define XLOG_UPDATE_LOG_WRITE_ERROR 0x5400u
#define XLOG_UPDATE_LOG_WRITE_SHORT 0x5401u
#define XLOG_UPDATE_LOG_FILE_HEADER_ERROR 0x5500u /* reading it */
#define XLOG_UPDATE_LOG_FILE_HEADER_SHORT 0x5501u
#define XLOG_UPDATE_LOG_HEADER_ERROR 0x5502u /* reading a log header */
#define XLOG_UPDATE_LOG_HEADER_SHORT 0x5503u
#define XLOG_UPDATE_LOG_NOT_OPEN 0x5600u
#define XLOG_UPDATE_TYPE_BAD_REQUEST 0x5102u
#define XLOG_UPDATE_TYPE_BAD_LINK 0x5206u
#define XLOG_UPDATE_TYPE_BAD_START 0x5204u
#define XLOG_UPDATE_TYPE_NO_LOCK 0x5301u
#define XLOG_UPDATE_TYPE_WRITE_ERROR 0x5402u
#define XLOG_UPDATE_TYPE_WRITE_SHORT 0x5403u
#define XLOG_UPDATE_TYPE_FILE_HEADER_ERROR 0x5504u
#define XLOG_UPDATE_TYPE_FILE_HEADER_SHORT 0x5505u
#define XLOG_UPDATE_TYPE_HEADER_ERROR 0x5508u
#define XLOG_UPDATE_TYPE_HEADER_SHORT 0x5509u
#define XLOG_UPDATE_TYPE_NOT_OPEN 0x5601u
#define XLOG_MARK_BAD_REQUEST 0x5103u
#define XLOG_MARK_BAD_LINK 0x5207u
#define XLOG_MARK_BAD_START 0x5205u
#define XLOG_MARK_NO_LOCK 0x5302u
#define XLOG_MARK_WRITE_ERROR 0x5404u
#define XLOG_MARK_WRITE_SHORT 0x5405u
#define XLOG_MARK_FILE_HEADER_ERROR 0x5506u
#define XLOG_MARK_FILE_HEADER_SHORT 0x5507u
#define XLOG_MARK_HEADER_ERROR 0x550Au
#define XLOG_MARK_HEADER_SHORT 0x550Bu
#define XLOG_MARK_NOT_OPEN 0x5602u

/*
 * Overwrites a log's first modify block with the data, in their full size whatever the block's: longer data overwrite
 * what follows in the file. Changes a log's type. Marks a log as deleted: it stays in the file, unseen by readers,
 * until room is made. A damaged file is saved and begun anew (sysrc 8); a bad chain leaves `comprc` 0, but for a bad
 * start met by xlog_mark_log_for_delete.
 */
PLOV_API int32_t xlog_update_log(xlog_update_request* request, uint32_t* comprc);
PLOV_API int32_t xlog_update_type(xlog_update_type_request* request, uint32_t* comprc);
PLOV_API int32_t xlog_mark_log_for_delete(xlog_mark_request* request, uint32_t* comprc);

/* Reading back. */

/* Retrieve options. Without TYPE_ONLY, ANY_EVENTID and ALL_CLASSES all four event-id bytes must be equal. */
#define XLOG_OPT_TYPE_ONLY 0x0001u   /* the type byte alone must be equal */
#define XLOG_OPT_ANY_EVENTID 0x0002u /* any event of the requested class */
#define XLOG_OPT_ALL_CLASSES 0x0008u /* any event of the file */
#define XLOG_OPT_EXACT_TIME 0x0040u  /* the stamp must equal the start time; the walk never stops early on time */

/* What a block must hold: (data[i] & mask[i]) == (block[i] & mask[i]) for every i below length. */
typedef struct xlog_pattern {
  uint32_t length;
  uint8_t block_id;
  const uint8_t* data;
  const uint8_t* mask;
  struct xlog_pattern* next;
} xlog_pattern;

/* Allocated by the library; released by xlog_free or xlog_free_mem. */
typedef struct xlog_block_entry {
  uint32_t length; /* after expansion, at most XLOG_MAX_BLOCK_SIZE */
  uint8_t block_id;
  uint8_t* data; /* NULL when length is 0 */
  struct xlog_block_entry* next;
} xlog_block_entry;

/* Packed up to its flags. Allocated by the library with XLOG_ENTRY_ALLOCATION bytes; released by xlog_free. */
#define XLOG_ENTRY_ALLOCATION 96u
typedef struct xlog_log_entry {
  xlog_eventid eventid;
  xlog_timestamp timestamp; /* hundredths below 100 */
  char event_name[XLOG_NAME_SIZE];
  uint16_t flags PLOV_PACKED; /* XLOG_LOG_PROBLEM_ANALYSIS, XLOG_LOG_DISPLAY_AS_ERROR */
  uint8_t unused;
  xlog_block_entry* blocks;    /* in the log's order; reversed by a block-id list */
  struct xlog_log_entry* next; /* the next older log */
} xlog_log_entry;

typedef struct PLOV_PACKED xlog_retrieve_block {
  uint16_t options; /* XLOG_OPT_* */
  xlog_eventid eventid;
  xlog_timestamp start; /* seconds 0: none */
  xlog_timestamp end;   /* seconds 0: none */
  char target_session[2048];
  xlog_log_entry* result; /* out: newest first */
  xlog_pattern* patterns; /* every one must be satisfied by some block of the log */
  uint32_t maximum;       /* stop after this many logs; 0: no limit */
  uint32_t count;         /* out */
  uint32_t id_count;      /* bytes in id_list; 0: keep all blocks */
  const uint8_t* id_list; /* ids of the blocks to keep */
} xlog_retrieve_block;

/* `comprc` values of xlog_retrieve and xlog_free. */
#define XLOG_RETRIEVE_BAD_BLOCK 0x2101u
#define XLOG_RETRIEVE_BAD_PATTERN 0x2102u
#define XLOG_RETRIEVE_BAD_PATTERN_DATA 0x2103u
#define XLOG_RETRIEVE_BAD_PATTERN_MASK 0x2104u
#define XLOG_RETRIEVE_BAD_ID_LIST 0x2105u
#define XLOG_RETRIEVE_NO_START 0x2201u /* the walk's start is not in the file: also a class without logs */
#define XLOG_RETRIEVE_BAD_LINK 0x2202u
#define XLOG_RETRIEVE_BAD_CLASS_LINK 0x2203u
#define XLOG_RETRIEVE_FILE_HEADER_ERROR 0x2500u
#define XLOG_RETRIEVE_FILE_HEADER_SHORT 0x2501u
#define XLOG_RETRIEVE_HEADER_ERROR 0x2502u
#define XLOG_RETRIEVE_HEADER_SHORT 0x2503u
#define XLOG_RETRIEVE_BLOCK_ERROR 0x2504u
#define XLOG_RETRIEVE_BLOCK_SHORT 0x2505u
#define XLOG_RETRIEVE_NO_ENTRY_MEMORY 0x2703u
#define XLOG_RETRIEVE_NO_BLOCK_MEMORY 0x2704u
#define XLOG_RETRIEVE_NO_EXPANDED_MEMORY 0x2705u
#define XLOG_RETRIEVE_NO_BUFFER 0x2708u
#define XLOG_RETRIEVE_NO_RAW_MEMORY 0x270Cu
#define XLOG_RETRIEVE_CORRUPT 0x2800u
#define XLOG_RETRIEVE_NO_LOCK 0x2950u
#define XLOG_FREE_BAD_BLOCK 0x3101u
#define XLOG_FREE_BAD_ENTRY 0x3102u
#define XLOG_FREE_BAD_BLOCK_ENTRY 0x3103u

/* Reads the matching logs, newest first. On failure the chain is empty and the count 0. Finding nothing is success. */
PLOV_API int32_t xlog_retrieve(xlog_retrieve_block* block, uint32_t* comprc);

/* Releases the result chain and sets it to NULL. A record that fails its probe ends the walk; what is left stays in
 * place. */
PLOV_API int32_t xlog_free(xlog_retrieve_block* block, uint32_t* comprc);

/* Releases a chain of blocks. Checks nothing. */
PLOV_API void xlog_free_mem(xlog_block_entry* blocks);

/* The three tests of a walk; 1 or 0. They probe nothing. xlog_match_time carries hundredths above 99 into the seconds
 * in place. */
PLOV_API int32_t xlog_match_eventid(uint16_t options, const xlog_eventid* requested, const xlog_eventid* log);
PLOV_API int32_t xlog_match_time(uint16_t options, const xlog_timestamp* start, const xlog_timestamp* end,
                                 xlog_timestamp* log);
PLOV_API int32_t xlog_match_pattern(const xlog_pattern* patterns, const xlog_block_entry* blocks);

/* Purging, pruning, trimming. */

#define XLOG_PURGE_FILE (-1) /* the whole file */

typedef struct PLOV_PACKED xlog_purge_block {
  int32_t count;        /* of classes, 0 to 256; or XLOG_PURGE_FILE */
  uint8_t classes[256]; /* the first `count` are purged */
  char target_session[2048];
} xlog_purge_block;

/* `comprc` values of xlog_log_purge; of a pair the first is for an error that the stream reports. */
#define XLOG_PURGE_BAD_COUNT 0x4102u
#define XLOG_PURGE_BAD_CLASSES 0x4103u /* the block cannot be read */
#define XLOG_PURGE_BAD_LINK 0x4203u    /* a link of a class does not point to an older log of it */
#define XLOG_PURGE_MARK_ERROR 0x4412u  /* writing the marks */
#define XLOG_PURGE_MARK_SHORT 0x4413u
#define XLOG_PURGE_HEADER_ERROR 0x450Cu /* reading log headers */
#define XLOG_PURGE_HEADER_SHORT 0x450Du
#define XLOG_PURGE_FILE_HEADER_ERROR 0x4512u
#define XLOG_PURGE_FILE_HEADER_SHORT 0x4513u
#define XLOG_PURGE_DELETE_FAILED 0x4800u
#define XLOG_PURGE_NO_LOCK 0x4901u

/*
 * Deletes the logs of classes and closes the gaps; with count 0 only those are closed that are there. With
 * XLOG_PURGE_FILE removes the file and, whatever its name, the saved and the compressed copies of the main log; a file
 * that does not exist is success. Records a "LOGPURGE" system event in the main log, of a whole file with its name as
 * the variable. Result and `comprc` are those of the first failure, or of the event's recording.
 */
PLOV_API int32_t xlog_log_purge(const xlog_purge_block* block, uint32_t* comprc);

/*
 * Brings the log "e4" down to a fifth of its size when it is larger, oldest logs first, and records a "BRELECLOG" event
 * in it. Takes the file's own lock, not the log lock. Result 0, or that of the failing step, which the trace names.
 */
PLOV_API int32_t xlog_e4_prune(void);

/* The same as a native method: JNIEnv* and jobject are not looked at. */
PLOV_API int32_t Java_com_zanth_vemra_base_brellogs_WriteData_jniPruneE4Log(void* environment, void* object);

/* Bytes of a trimmed copy, at most, beside the event that tells of its pruning. */
#define XLOG_TRIM_SIZE 1400000u

#define XLOG_TRIM_BAD_NAME 0x4104u /* the destination's name cannot be read */

/*
 * Copies the main log, or "wexocalt.log" when the destination's name has that in it, to `destination`, a file name as
 * xdfc_file_copy takes it; a log larger than XLOG_TRIM_SIZE loses its oldest events in the copy. Uses "wexotsd.log".
 * A log whose header says that it holds less than would have to go is not copied, which is success. A destination that
 * is made by this has mode 0600; one that is there keeps its own.
 */
PLOV_API int32_t xlog_trim_log(const char* destination, uint32_t* comprc);

/*
 * The same for Java, through the native bridge: the request's first argument is a byte array with the destination's
 * name. A failure is reported to Java with a message and both codes. Result: that of xnbSetIntResult.
 */
struct xnb_request;
PLOV_API int32_t xlogTrimLog(struct xnb_request* request);

/* The block codec. */

/* Input, and output with its capacity; the output length comes back as the bytes produced. */
typedef struct xlog_mem_block {
  const void* input;
  uint32_t input_length;
  void* output;
  uint32_t output_length;
} xlog_mem_block;

/* `comprc` values of the codec. */
#define XLOG_ENCODE_BAD_ARGUMENT 0x9000u
#define XLOG_ENCODE_NO_CODES 0x9001u /* no memory for the code buffer: output length 0 */
#define XLOG_ENCODE_NO_TABLE 0x9002u /* to 0x9006: no memory for search structure 1 to 5: output length 12 */
#define XLOG_ENCODE_CUT 0x9011u      /* to 0x9014: codes cut at the capacity, in the main loop, at end code 1 to 3 */
#define XLOG_DECODE_BAD_ARGUMENT 0x9000u
#define XLOG_DECODE_NO_CODES 0x9007u
#define XLOG_DECODE_NO_STAGING 0x9008u
#define XLOG_DECODE_NO_DICTIONARY 0x9009u
#define XLOG_DECODE_CUT 0x9015u /* the output is cut, or a code of the block is not live */

/* Encodes one block: result 0 always (1: bad `comprc`); `comprc` says whether it went well. */
PLOV_API int32_t xlog_mem_encode(xlog_mem_block* block, uint32_t* comprc);

/* Expands one encoded or plainly stored block. A stored block (first byte 0xFF) is copied whatever the capacity. */
PLOV_API int32_t xlog_mem_decode(xlog_mem_block* block, uint32_t* comprc);

/* Steps of a log operation, called by the log manager's own functions only: they probe nothing. */

/* Configuration, from "wexoinit.trm". Sizes count in XLOG_SIZE_UNIT. */
typedef struct xlog_type_record {
  uint16_t type;
  uint16_t first;  /* keep count */
  uint16_t second; /* deletion priority 0 to 3 */
  struct xlog_type_record* next;
} xlog_type_record;

typedef struct xlog_class_record {
  uint16_t classes;
  uint16_t first;
  uint16_t second;
  xlog_type_record* types; /* newest line first */
  struct xlog_class_record* next;
} xlog_class_record;

typedef struct xlog_configuration {
  uint16_t short_name_file_size; /* files with a short name */
  uint16_t main_file_size;
  uint16_t e4_file_size;
  uint16_t max_single_log_size;
  uint16_t modify_block_size; /* bytes */
  uint16_t default_keep_count;
  uint16_t compressed_copies;
  xlog_class_record* class_list; /* the caller's, each record freed with plovmemdebug_free; NULL unless asked for */
} xlog_configuration;

/* Kinds of log file: they choose the size of a new one. */
#define XLOG_KIND_MAIN 0
#define XLOG_KIND_SHORT_NAME 1
#define XLOG_KIND_E4 2
#define XLOG_KIND_ALT 3
#define XLOG_ALT_FILE_SIZE 5000u

/* The `error_id` values of these steps. */
#define XLOG_ERR_NO_LOCK 0x1104u
#define XLOG_ERR_NAME_TOO_LONG 0x4810u
#define XLOG_ERR_OPEN 0x4300u
#define XLOG_ERR_READ_FILE_HEADER 0x4500u
#define XLOG_ERR_WRITE_FILE_HEADER 0x4400u
#define XLOG_ERR_SEEK_LOG_INFO 0x4402u
#define XLOG_ERR_WRITE_LOG_INFO_HEADER 0x4403u
#define XLOG_ERR_WRITE_LOG_INFO_DATA 0x4405u
#define XLOG_ERR_CLOSE 0x4600u
#define XLOG_ERR_CONFIG_SIZE 0x4302u
#define XLOG_ERR_CONFIG_OPEN 0x4303u
#define XLOG_ERR_CONFIG_READ 0x4502u
#define XLOG_ERR_CONFIG_SHORT 0x4503u
#define XLOG_ERR_CONFIG_CLOSE 0x4601u
#define XLOG_ERR_CONFIG_MEMORY 0x4701u
#define XLOG_ERR_CONFIG_CLASS_MEMORY 0x4702u
#define XLOG_ERR_CONFIG_TYPE_MEMORY 0x4703u

/* Key of the machine-wide log lock. */
#define XLOG_SEMAPHORE_KEY 0x96728008u
#define XLOG_SEM_LOCK 1
#define XLOG_SEM_UNLOCK 2

/* Takes (1) or gives back (2) the log lock; any other operation does nothing. Result 0, or 2 with the semaphore's code.
 */
PLOV_API int32_t xlog_access_sem(int32_t operation, uint32_t* comprc);

/* Installs (1) or removes (2) the log's SIGSEGV guard, which frees the lock when its thread dies holding it. 0 always.
 */
PLOV_API int32_t xlog_sig_handler(int32_t flag);

/* 1 while the guard is installed. */
extern PLOV_API uint32_t xlog_sig_flag;

/* Error handlers running in this process: one that is called meanwhile only reports. Changed atomically. */
extern PLOV_API uint32_t xlog_error_pending;

/* System information field 5. 0 until it is read. */
extern PLOV_API uint16_t xlog_qrlse;

/* Reads "wexoinit.trm", with the class list when `want_classes` is non-zero. 0 success. */
PLOV_API int32_t xlog_process_init(xlog_err_interface* err_interface, int32_t want_classes,
                                   xlog_configuration* configuration);

/* Byte value of two upper-case hexadecimal digits; any other character counts its code less 55. */
PLOV_API uint8_t xlog_atoh(const char* digits);

/* Opens the file that `target_session` names, creating and initialising it when it does not exist. 0, 2, 8, or the
 * handler's result. */
PLOV_API int32_t xlog_open_file(xlog_err_interface* err_interface);

/* Writes the file header and the Log Info Log of a new file that is open at its start. */
PLOV_API int32_t xlog_init_file(xlog_err_interface* err_interface, int32_t kind);

/* Closes the stream; `file_handle` is NULL afterwards. */
PLOV_API int32_t xlog_close_file(xlog_err_interface* err_interface);

/* Making room in a full log. The recorder and the opening call these with the open file and its header. */

/* Bytes to delete, by priority 0 to 3. */
typedef struct xlog_stage_result {
  int32_t bytes_to_delete[4];
} xlog_stage_result;

#define XLOG_COPY_NAME_SIZE 16u /* "wexocom" + digit + ".log" and its NUL fit */

/* The `error_id` values of these steps, beside XLOG_ERR_SEEK_LOG_INFO, _WRITE_LOG_INFO_HEADER and _WRITE_LOG_INFO_DATA,
 * which are also those of the "logcomp" event. */
#define XLOG_ERR_ROOM_NO_LENGTH 0x4100u      /* a log whose length no log can have */
#define XLOG_ERR_ROOM_MARK_NO_LENGTH 0x4101u /* the same while logs are marked for deletion */
#define XLOG_ERR_ROOM_CLASS_START 0x4201u    /* the newest log of a class is not in the data */
#define XLOG_ERR_ROOM_CLASS_LINK 0x4202u     /* a link of a class does not point to an older log of it */
#define XLOG_ERR_ROOM_REOPEN 0x4305u
#define XLOG_ERR_ROOM_KEPT_ERROR 0x4404u /* writing priorities: stream error */
#define XLOG_ERR_ROOM_FILE_HEADER_ERROR 0x4406u
#define XLOG_ERR_ROOM_FILE_HEADER_SHORT 0x4407u
#define XLOG_ERR_ROOM_DELETED_ERROR 0x4408u /* writing marks of deletion */
#define XLOG_ERR_ROOM_DELETED_SHORT 0x4409u
#define XLOG_ERR_ROOM_MARK_HEADER_ERROR 0x440Au /* writing the header with the mark "prune in progress" */
#define XLOG_ERR_ROOM_MARK_HEADER_SHORT 0x440Bu
#define XLOG_ERR_ROOM_DATA_ERROR 0x440Eu /* moving logs in the file itself */
#define XLOG_ERR_ROOM_DATA_WRITTEN_SHORT 0x440Fu
#define XLOG_ERR_ROOM_END_HEADER_ERROR 0x4410u /* writing the header without the mark */
#define XLOG_ERR_ROOM_END_HEADER_SHORT 0x4411u
#define XLOG_ERR_ROOM_KEPT_SHORT 0x4414u
#define XLOG_ERR_ROOM_LAST_BLOCK_SHORT 0x4417u
#define XLOG_ERR_ROOM_TALLY_ERROR 0x4504u /* reading for the tally; + 1: cut off */
#define XLOG_ERR_ROOM_TALLY_SHORT 0x4505u
#define XLOG_ERR_ROOM_START_SEEK 0x4506u /* looking for the first deleted log */
#define XLOG_ERR_ROOM_START_SHORT 0x4507u
#define XLOG_ERR_ROOM_MOVE_SEEK 0x4508u /* closing the gaps */
#define XLOG_ERR_ROOM_MOVE_SHORT 0x4509u
#define XLOG_ERR_ROOM_DATA_SHORT 0x450Bu
#define XLOG_ERR_ROOM_MARK_SEEK 0x450Eu /* marking logs for deletion */
#define XLOG_ERR_ROOM_MARK_SHORT 0x450Fu
#define XLOG_ERR_ROOM_NEWEST_SEEK 0x4510u /* the newest log of a file whose prune was broken off */
#define XLOG_ERR_ROOM_NEWEST_SHORT 0x4511u
#define XLOG_ERR_ROOM_CLOSE 0x4602u
#define XLOG_ERR_ROOM_SHORTEN 0x4605u
#define XLOG_ERR_ROOM_NO_MEMORY 0x4704u

/*
 * Makes room: a copy of the main log in the next slot, the tally, the deletion, the "logcomp" event. `file_header` is
 * the live file's and is brought up to date; `err_interface->file_handle` may be another stream afterwards. Finishes
 * what a dead process began when the header says so. 0, or the error handler's result. A result 0 with `error_level`
 * set or without a stream is a failure that nobody has handled yet.
 */
PLOV_API int32_t xlog_compress_file(xlog_file_header* file_header, xlog_err_interface* err_interface);

/* The first half of it: copies, and marks what the keep counts let go. `copy_name` (XLOG_COPY_NAME_SIZE bytes) receives
 * the copy's name, "" when none is made. 24: the failure is in `err_interface`. */
PLOV_API int32_t xlog_stage_one(xlog_file_header* file_header, xlog_err_interface* err_interface,
                                xlog_stage_result* stage_result, char* copy_name);

/* The second half: deletes these amounts, oldest first, and closes the gaps. The amounts fall by what was deleted. */
PLOV_API int32_t xlog_delete_logs(xlog_err_interface* err_interface, xlog_file_header* file_header,
                                  xlog_stage_result* stage_result);

/*
 * Goes on reading in a compressed copy. `offset` is a log of the file that is open; a copy whose newest log has the
 * same length (nothing else is compared) becomes `file_handle`, `*new_offset` its newest log, `*file_header` its
 * header,
 * `*found` 1. With `name` only that copy is tried, else every one not yet used, in the directory's order. `reset`
 * forgets which were used. The copies used are remembered for the process: one walk at a time. Result 0 always.
 */
PLOV_API int32_t xlog_find_comp_log(const char* name, uint32_t offset, uint32_t* new_offset, int32_t reset,
                                    int32_t* found, xlog_file_header* file_header, xlog_err_interface* err_interface);

/* Where every failed log operation ends. Result normally 8. */
PLOV_API int32_t xlog_error_handler(xlog_err_interface* err_interface);

/* Sizes on the console's ABI. */

PLOV_AT(xlog_log_request, eventid, 2);
PLOV_AT(xlog_log_request, timestamp, 6);
PLOV_AT(xlog_log_request, event_name, 11);
PLOV_AT(xlog_log_request, target_session, 23);
PLOV_AT(xlog_log_request, data, 2072);
PLOV_SIZE(xlog_purge_block, 2308);
PLOV_AT(xlog_purge_block, target_session, 260);
PLOV_AT(xlog_system_event, user, 4);
PLOV_AT(xlog_system_event, event_name, 6);
PLOV_AT(xlog_system_event, target_session, 18);
PLOV_AT(xlog_e4_system_event, target_session, 18);
PLOV_AT(xlog_microcode_request, event_name, 8);
PLOV_AT(xlog_microcode_request, error_code, 20);
PLOV_AT(xlog_microcode_request, extension, 24);
PLOV_AT(xlog_update_request, identity, 2);
PLOV_AT(xlog_update_request, data_size, 12);
PLOV_AT(xlog_update_request, target_session, 16);
PLOV_AT(xlog_update_request, data, 2064);
PLOV_AT(xlog_update_type_request, new_type, 11);
PLOV_SIZE(xlog_update_type_request, 2060);
PLOV_AT(xlog_mark_request, target_session, 11);
PLOV_SIZE(xlog_mark_request, 2060);
PLOV_AT(xlog_log_entry, timestamp, 4);
PLOV_AT(xlog_log_entry, event_name, 9);
PLOV_AT(xlog_log_entry, flags, 21);
PLOV_AT(xlog_log_entry, blocks, 24);
PLOV_AT(xlog_retrieve_block, eventid, 2);
PLOV_AT(xlog_retrieve_block, start, 6);
PLOV_AT(xlog_retrieve_block, end, 11);
PLOV_AT(xlog_retrieve_block, target_session, 16);
PLOV_AT(xlog_retrieve_block, result, 2064);
#if PLOV_ILP32
PLOV_SIZE(xlog_err_interface, 2064);
PLOV_AT(xlog_err_interface, error_reason, 4);
PLOV_AT(xlog_err_interface, error_level, 8);
PLOV_AT(xlog_err_interface, file_handle, 12);
PLOV_AT(xlog_err_interface, target_session, 16);
PLOV_SIZE(xlog_data_node, 16);
PLOV_AT(xlog_data_node, block_id, 4);
PLOV_AT(xlog_data_node, data_ptr, 8);
PLOV_AT(xlog_data_node, next, 12);
PLOV_SIZE(xlog_log_request, 2076);
PLOV_SIZE(xlog_microcode_request, 2096);
PLOV_AT(xlog_microcode_request, options, 4);
PLOV_AT(xlog_microcode_request, error_code, 20);
PLOV_AT(xlog_microcode_request, data, 28);
PLOV_AT(xlog_microcode_request, target_session, 36);
PLOV_AT(xlog_microcode_request, chain, 2084);
PLOV_AT(xlog_microcode_request, timestamp, 2088);
PLOV_SIZE(xlog_variable, 16);
PLOV_AT(xlog_variable, length, 4);
PLOV_AT(xlog_variable, data, 8);
PLOV_SIZE(xlog_system_event, 2076);
PLOV_AT(xlog_system_event, variables, 2068);
PLOV_SIZE(xlog_e4_system_event, 2084);
PLOV_AT(xlog_e4_system_event, extra_size, 2072);
PLOV_AT(xlog_e4_system_event, tower, 2080);
PLOV_SIZE(xlog_message_reference, 16);
PLOV_SIZE(xlog_update_request, 2068);
PLOV_SIZE(xlog_microcode_request, 2096);
PLOV_AT(xlog_microcode_request, data, 28);
PLOV_AT(xlog_microcode_request, chain, 2084);
PLOV_AT(xlog_microcode_request, timestamp, 2088);
PLOV_SIZE(xlog_event_data_details, 12);
PLOV_SIZE(xlog_pattern, 20);
PLOV_AT(xlog_pattern, mask, 12);
PLOV_SIZE(xlog_block_entry, 16);
PLOV_AT(xlog_log_entry, next, 28);
PLOV_SIZE(xlog_retrieve_block, 2088);
PLOV_AT(xlog_retrieve_block, maximum, 2072);
PLOV_AT(xlog_retrieve_block, count, 2076);
PLOV_AT(xlog_retrieve_block, id_count, 2080);
PLOV_AT(xlog_retrieve_block, id_list, 2084);
PLOV_SIZE(xlog_mem_block, 16);
PLOV_SIZE(xlog_configuration, 20);
PLOV_AT(xlog_configuration, class_list, 16);
PLOV_SIZE(xlog_class_record, 16);
PLOV_AT(xlog_class_record, types, 8);
PLOV_SIZE(xlog_type_record, 12);
#endif

PLOV_END_DECLS

#endif
