/*
 * The log file, byte by byte. Every log file of the machine has this one layout:
 *
 *     0     file header, 1,040 bytes
 *     1040  logs back to back, each: log header (37 bytes + 3 for each block), then the data of its blocks in order
 *
 * All integers are little-endian and unsigned, records have no padding, offsets count from the start of the file, and
 * offset 0 in a link means "none". The chains run from the newest log backwards: `last_log_offset` and
 * `prev_log_offset` link all logs, `class_last_log[c]` and `prev_class_log_offset` those of class c. A log beyond
 * `file_size` is not in the file. Both word sizes share the files.
 */
#ifndef XLOG_FORMAT_H
#define XLOG_FORMAT_H

#include "plov_api.h"

#define XLOG_SIZE_UNIT 2048u        /* sizes in the file header count in these */
#define XLOG_FILE_HEADER_SIZE 1040u /* also the offset of the first log */
#define XLOG_MAX_BLOCKS 256u
#define XLOG_MAX_HEADER_SIZE 805u   /* a log header with 256 blocks; readers read this much and use what they need */
#define XLOG_MAX_BLOCK_SIZE 0xFF00u /* largest block before encoding */
#define XLOG_NAME_SIZE 12u

/* Which event, and when: together they identify a log. */
typedef struct PLOV_PACKED xlog_eventid {
  uint8_t classes;
  uint8_t log_type;
  uint16_t user;
} xlog_eventid;

typedef struct PLOV_PACKED xlog_timestamp {
  uint32_t seconds;   /* since 1970-01-01 UTC */
  uint8_t hundredths; /* of that second */
} xlog_timestamp;

typedef struct PLOV_PACKED xlog_event_identity {
  xlog_eventid eventid;
  xlog_timestamp timestamp;
} xlog_event_identity;

/* `file_flags` */
#define XLOG_FILE_PRUNE_IN_PROGRESS 0x0010u /* set while room is made; found set, that is finished at open */
#define XLOG_FILE_UTC_OFFSET 0x0020u        /* each log begins with a UTC offset block */
#define XLOG_VERSION_CONTROL_FLAG 0x0100u   /* standard blocks have the versioned form of 82 bytes */
#define XLOG_FILE_SINGLE_STAGE 0x1000u      /* the "e4" file: room is made without a compressed copy */

typedef struct PLOV_PACKED xlog_file_header {
  uint16_t max_file_size;       /* of the whole file, in XLOG_SIZE_UNIT */
  uint16_t max_single_log_size; /* of one log, in XLOG_SIZE_UNIT */
  uint16_t modify_block_size;   /* bytes; 0 means 10 */
  uint32_t last_log_offset;     /* newest log */
  uint32_t file_size;           /* one past the newest log; the next one goes here */
  uint32_t class_last_log[256]; /* newest log of each class */
  uint16_t file_flags;
} xlog_file_header;

/* `log_flags` */
#define XLOG_LOG_PROBLEM_ANALYSIS 0x0001u
#define XLOG_LOG_ENCODED_HINT 0x0002u /* read as a second sign of encoded blocks, never written */
#define XLOG_LOG_STORED_FORM 0x0004u  /* blocks other than id 0 are in the stored or encoded form */
#define XLOG_LOG_DISPLAY_AS_ERROR 0x0800u
#define XLOG_LOG_PRIORITY_MASK 0x3000u
#define XLOG_LOG_PRIORITY_SHIFT 12
#define XLOG_LOG_DELETED 0xFFFFu /* the whole word */

struct PLOV_PACKED xlog_log_info {
  uint32_t total_log_size; /* header and all block data */
  xlog_eventid eventid;
  xlog_timestamp timestamp;
  char event_name[XLOG_NAME_SIZE]; /* not terminated when full */
  uint16_t log_flags;
  uint32_t prev_log_offset;
  uint32_t prev_class_log_offset;
  uint16_t num_blocks;
};

struct PLOV_PACKED xlog_block_info {
  uint8_t block_id;
  uint16_t block_size; /* as stored */
};

/* A log header in memory, with room for every block entry. */
typedef struct PLOV_PACKED xlog_log_header {
  struct xlog_log_info log_info;
  struct xlog_block_info block_info[XLOG_MAX_BLOCKS];
} xlog_log_header;

/* Block ids */
#define XLOG_MODIFY_BLOCK_ID 0x00u   /* raw bytes, changed in place later */
#define XLOG_STANDARD_BLOCK_ID 0x01u /* the recording process */
#define XLOG_LOG_INFO_BLOCK_ID 0x03u
#define XLOG_EXTRA_DATA_BLOCK_ID 0xD0u /* of a system event in "e4" */
#define XLOG_FILE_LIST_BLOCK_ID 0xDFu  /* names of files, in the chain of a microcode log */
#define XLOG_BACKTRACE_BLOCK_ID 0xE0u  /* to 0xEC */
#define XLOG_LAST_BACKTRACE_BLOCK_ID 0xECu
#define XLOG_THREAD_TRACE_BLOCK_ID 0xEDu
#define XLOG_PROCESS_TRACE_BLOCK_ID 0xEEu
#define XLOG_TRACE_BLOCK_ID 0xEFu
#define XLOG_ERROR_BLOCK_ID 0xF0u /* xlog_error_block */
#define XLOG_SYSTEM_EVENT_BLOCK_ID 0xF1u
#define XLOG_REFCODE_BLOCK_ID 0xF2u
#define XLOG_TOWER_BLOCK_ID 0xF3u
#define XLOG_RESERVED_F4_BLOCK_ID 0xF4u
#define XLOG_UTCOFFSET_BLOCK_ID 0xF5u

/* First byte of a block that is stored as it stands; any other first byte is an encoded block. */
#define XLOG_STORED_MARK 0xFFu

/* UTC offset block as stored. */
typedef struct PLOV_PACKED xlog_utc_block {
  uint8_t mark;           /* XLOG_STORED_MARK */
  uint16_t reserved;      /* 0 */
  int16_t offset_minutes; /* local time east of UTC at the log's own time */
} xlog_utc_block;

/* Second block of the Log Info Log, as stored. No reader interprets the two values 1. */
typedef struct PLOV_PACKED xlog_log_info_block {
  uint8_t mark;
  uint16_t value1; /* 1 */
  uint32_t value2; /* 1 */
  char text[9];    /* "pqrl" */
} xlog_log_info_block;

/* Standard block, versioned form. The unversioned form is the same without its first field. */
#define XLOG_PROCESS_NAME_SIZE 51u
typedef struct PLOV_PACKED xlog_L00F02B00V01 {
  char process_name[XLOG_PROCESS_NAME_SIZE]; /* not terminated when full */
  uint32_t process_id;
  uint32_t parent_process_id;
  uint32_t reserved1;
  uint32_t thread_id;
  uint8_t reserved2[13];
} xlog_L00F02B00V01;

typedef struct PLOV_PACKED xlog_standard_block {
  uint16_t version; /* 2 */
  xlog_L00F02B00V01 process;
} xlog_standard_block;

/*
 * A crash file: an event that problem analysis could not be told of. The analysis finds it in its crash directory, as
 * "crash.jvm.." + return code (8 hexadecimal digits, the first four "0") + "." + seconds (8) + hundredths (2) of the
 * time when it was written, digits of the time in upper case.
 */
typedef struct PLOV_PACKED xlog_crash_file {
  uint8_t classes;
  char bars1[2]; /* "||", here and below */
  uint8_t log_type;
  char bars2[2];
  uint16_t user;
  char bars3[2];
  uint32_t seconds; /* of the event's stamp */
  char bars4[2];
  uint8_t hundredths;
} xlog_crash_file;

/* Error block: what failed, and a detail of it. */
typedef struct PLOV_PACKED xlog_error_block {
  uint16_t error_id;
  uint32_t error_reason;
} xlog_error_block;

/* The Log Info Log: class 255, type 255, first log of every file but "e4". */
#define XLOG_LOG_INFO_NAME "Log Info Log"
#define XLOG_LOG_INFO_SIZE 64u

#define PLOV_AT(type, field, offset) \
  PLOV_STATIC_ASSERT(offsetof(type, field) == (offset), #type "." #field " is misplaced")
#define PLOV_SIZE(type, size) PLOV_STATIC_ASSERT(sizeof(type) == (size), #type " has the wrong size")

PLOV_SIZE(xlog_eventid, 4);
PLOV_AT(xlog_eventid, classes, 0);
PLOV_AT(xlog_eventid, log_type, 1);
PLOV_AT(xlog_eventid, user, 2);
PLOV_SIZE(xlog_timestamp, 5);
PLOV_AT(xlog_timestamp, hundredths, 4);
PLOV_SIZE(xlog_event_identity, 9);
PLOV_AT(xlog_event_identity, timestamp, 4);
PLOV_SIZE(xlog_file_header, XLOG_FILE_HEADER_SIZE);
PLOV_AT(xlog_file_header, max_file_size, 0);
PLOV_AT(xlog_file_header, max_single_log_size, 2);
PLOV_AT(xlog_file_header, modify_block_size, 4);
PLOV_AT(xlog_file_header, last_log_offset, 6);
PLOV_AT(xlog_file_header, file_size, 10);
PLOV_AT(xlog_file_header, class_last_log, 14);
PLOV_AT(xlog_file_header, file_flags, 1038);
PLOV_SIZE(struct xlog_log_info, 37);
PLOV_AT(struct xlog_log_info, total_log_size, 0);
PLOV_AT(struct xlog_log_info, eventid, 4);
PLOV_AT(struct xlog_log_info, timestamp, 8);
PLOV_AT(struct xlog_log_info, event_name, 13);
PLOV_AT(struct xlog_log_info, log_flags, 25);
PLOV_AT(struct xlog_log_info, prev_log_offset, 27);
PLOV_AT(struct xlog_log_info, prev_class_log_offset, 31);
PLOV_AT(struct xlog_log_info, num_blocks, 35);
PLOV_SIZE(struct xlog_block_info, 3);
PLOV_AT(struct xlog_block_info, block_size, 1);
PLOV_SIZE(xlog_log_header, XLOG_MAX_HEADER_SIZE);
PLOV_SIZE(xlog_utc_block, 5);
PLOV_AT(xlog_utc_block, offset_minutes, 3);
PLOV_SIZE(xlog_log_info_block, 16);
PLOV_AT(xlog_log_info_block, text, 7);
PLOV_SIZE(xlog_L00F02B00V01, 80);
PLOV_AT(xlog_L00F02B00V01, process_id, 51);
PLOV_AT(xlog_L00F02B00V01, parent_process_id, 55);
PLOV_AT(xlog_L00F02B00V01, thread_id, 63);
PLOV_SIZE(xlog_standard_block, 82);
PLOV_AT(xlog_standard_block, process.process_name, 2);
PLOV_AT(xlog_standard_block, process.process_id, 53);
PLOV_AT(xlog_standard_block, process.thread_id, 65);
PLOV_SIZE(xlog_crash_file, 17);
PLOV_AT(xlog_crash_file, log_type, 3);
PLOV_AT(xlog_crash_file, user, 6);
PLOV_AT(xlog_crash_file, seconds, 10);
PLOV_AT(xlog_crash_file, hundredths, 16);
PLOV_SIZE(xlog_error_block, 6);
PLOV_AT(xlog_error_block, error_reason, 2);

#endif
