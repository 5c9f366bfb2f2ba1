/*
 * The map of system values as it lies in shared memory and in its files. One layout for both word sizes; all numbers
 * are little-endian. Every process may write the segments (0666): who reads them believes no offset and no size.
 */
#ifndef XSIM_FORMAT_H
#define XSIM_FORMAT_H

#include "plov_api.h"

PLOV_BEGIN_DECLS

/* Keys of the shared objects. */
#define XSIM_KEY_HEADER 0x96728002u
#define XSIM_KEY_TOLVANE_ARRAY 0x96728003u
#define XSIM_KEY_TOLVANE_DATA 0x96728004u
#define XSIM_KEY_QUEN_ARRAY 0x96728005u
#define XSIM_KEY_QUEN_DATA 0x96728006u
#define XSIM_KEY_MESSAGE 0x96728007u /* the message block, and the semaphore set of one semaphore */

/* The two arrays, called passes. Field ids 1 to 3999 lie in the first at id - 1, 4000 and above in the second at
 * id - 4000. */
#define XSIM_TOLVANE 0
#define XSIM_QUEN 1
#define XSIM_FIRST_QUEN_ID 4000

/* Ids served by the Java side, not kept in the map. */
#define XSIM_FIRST_JAVA_ID 1001
#define XSIM_LAST_JAVA_ID 1999

/* Header block, zero when it is made. */
typedef struct xsim_pass_record {
  int32_t array_id;    /* shared-memory id of the pass's array */
  int32_t field_count; /* the highest number that a look-up accepts: id, or id - 4000 */
  uint32_t unused;
  int32_t data_id; /* shared-memory id of the pass's data area */
  uint8_t loaded;  /* 1 when the pass has been loaded; written last */
  uint8_t unused2[3];
} xsim_pass_record;
PLOV_STATIC_ASSERT(sizeof(xsim_pass_record) == 20, "shared between processes");
PLOV_STATIC_ASSERT(offsetof(xsim_pass_record, data_id) == 12, "shared between processes");
PLOV_STATIC_ASSERT(offsetof(xsim_pass_record, loaded) == 16, "shared between processes");

typedef struct xsim_header_block {
  xsim_pass_record pass[2];
  uint8_t unused[8];
} xsim_header_block;
PLOV_STATIC_ASSERT(sizeof(xsim_header_block) == 48, "shared between processes");

/* One entry of an array, in slot order. The segment has field_count * 16 + 24 bytes. */
typedef struct xsim_entry {
  uint32_t size;             /* of the field, in bytes */
  uint32_t offset;           /* of its value in the data area */
  uint32_t permanent_offset; /* of its value in the permanent file; XSIM_PERMANENT only */
  uint8_t flags;
  uint8_t unused[3];
} xsim_entry;
PLOV_STATIC_ASSERT(sizeof(xsim_entry) == 16, "shared between processes");
PLOV_STATIC_ASSERT(offsetof(xsim_entry, flags) == 12, "shared between processes");

#define XSIM_INITIALIZED 0x01u /* the field has storage */
#define XSIM_LOCKED 0x02u
#define XSIM_TYPE_SHIFT 2 /* the low five bits of the type byte stand in the flags from here on */

/* Type byte: storage in bits 0 to 2, keeping in bits 3 and 4. */
#define XSIM_TYPE_BITS 0x1Fu
#define XSIM_STORAGE_BITS 0x07u
#define XSIM_DATA 1u      /* the initial value stands in the data file */
#define XSIM_PERMANENT 2u /* the value stands in the permanent file; any other storage begins as zeros */
#define XSIM_KEEP_BITS 0x18u
#define XSIM_PERSISTENT 0x08u /* of the keep bits: changes are written to the permanent file */

/* The data area holds the values back to back; the segment has field_count * 10 + data_size + 12 bytes. */

#define XSIM_EYECATCHER "SIM BUFFER"
typedef struct xsim_message_block {
  char eyecatcher[16]; /* padded with NUL */
  uint32_t ready;      /* 1 when the block is complete; written last */
  int32_t semaphore_id;
} xsim_message_block;
PLOV_STATIC_ASSERT(sizeof(xsim_message_block) == 24, "shared between processes");
PLOV_STATIC_ASSERT(offsetof(xsim_message_block, semaphore_id) == 20, "shared between processes");

/*
 * Data file ("ywkzsim.dat", "kvdzsim.dat"): the head, then a record for each field, each followed by `size` bytes of
 * initial value when its storage is XSIM_DATA. A record of size 0 is never written: readers resume one byte early.
 */
typedef struct PLOV_PACKED xsim_data_head {
  uint16_t unused;
  int16_t highest_id;
  uint16_t data_size; /* bytes of all values */
} xsim_data_head;
PLOV_STATIC_ASSERT(sizeof(xsim_data_head) == 6, "file format");

typedef struct PLOV_PACKED xsim_data_record {
  int16_t id;
  int16_t size;
  uint8_t type;
} xsim_data_record;
PLOV_STATIC_ASSERT(sizeof(xsim_data_record) == 5, "file format");
PLOV_STATIC_ASSERT(offsetof(xsim_data_record, type) == 4, "file format");

/*
 * Permanent file ("ywkzspr.dat", "kvdzspr.dat"): two bytes that no reader looks at, then for each field of storage
 * XSIM_PERMANENT, in the order of the data file, four more such bytes and the value.
 */
#define XSIM_PERMANENT_START 2u
#define XSIM_PERMANENT_PREFIX 4u

/* What a loader reads of a file. */
#define XSIM_FILE_LIMIT 65528u
#define XSIM_DATA_LIMIT 65524u /* of data_size + field_count * 10 */

PLOV_END_DECLS

#endif
