/*
 * System information map: small named values ("fields"), each with a number, that all processes of the machine share.
 * The calling convention stands in plov_api.h, the layout of the shared memory and of the files in xsim_format.h.
 *
 * Ids 1 to 3999 lie in one shared array, 4000 and above in a second, optional one. Ids 1001 to 1999 belong to the Java
 * side: xsim_read and xsim_write pass them on through the native bridge, on the caller's thread and without the map's
 * semaphore; the other functions do not know them.
 *
 * Results. From xsim_read and xsim_write: 0, 1 for an unusable `comprc`, or 2. From the others: 1 as there, and 0 in
 * every other case, failures too: test `*comprc`. From all but xsim_read also what xsim_init gave, when the map could
 * not be had.
 *
 * The first process that calls loads the map from its files; every later one only attaches. A process that comes while
 * another one loads meets XSIM_NOT_LOADED. One operation at a time runs on the whole map, of all processes; the
 * kernel frees the map of a process that dies inside one. Cancellation of the thread is off meanwhile.
 *
 * A field's lock is advice between callers and spans calls: it stops writers without `override_lock`, not readers, and
 * only xsim_unlock or a successful write ends it. Lock, then write with the override: value stored, lock gone.
 */
#ifndef XSIM_H
#define XSIM_H

#include "xsim_format.h"

PLOV_BEGIN_DECLS

/* `comprc` values. Of a Java-served field also the bridge's status. */
#define XSIM_NO_DATA_FILE 16u      /* loading: "ywkzsim.dat" cannot be opened */
#define XSIM_NO_SEMAPHORE 17u      /* the map's semaphore could not be taken */
#define XSIM_NOT_LOADED 21u        /* the field's array is not loaded */
#define XSIM_BAD_POINTER 22u       /* a buffer or a piece list is not usable memory */
#define XSIM_UNKNOWN_FIELD 23u     /* no such field */
#define XSIM_NOT_INITIALIZED 24u   /* the field has no storage, or a piece leaves the data area */
#define XSIM_NO_MEMORY 25u         /* no memory, or no shared memory while loading */
#define XSIM_CLOSE_FAILED 26u      /* a file could not be closed */
#define XSIM_READ_FAILED 27u       /* a file could not be read, or ends inside a record */
#define XSIM_SEEK_FAILED 28u       /* positioning in the permanent file failed */
#define XSIM_TOO_MANY_FIELDS 29u   /* loading: the array would be too large, or an id lies outside of it */
#define XSIM_TOO_MUCH_DATA 30u     /* loading: the values would be too large, or a size is impossible */
#define XSIM_NO_ARRAY 31u          /* the shared array cannot be attached */
#define XSIM_NO_DATA_AREA 32u      /* the shared data area cannot be attached */
#define XSIM_NO_PERMANENT_FILE 51u /* the permanent file cannot be opened */
#define XSIM_ALREADY_LOCKED 52u    /* xsim_lock */
#define XSIM_NOT_LOCKED 53u        /* xsim_unlock */
#define XSIM_FIELD_LOCKED 54u      /* a read delivered the value all the same; a write was refused */
#define XSIM_WRITE_FAILED 55u      /* writing the permanent file failed */
#define XSIM_NOT_PERMANENT 56u     /* xsim_file_*: the field's value does not stand in the permanent file */

/* The process's own addresses of the shared objects, for a debugger and for tools; NULL until they are attached. */
extern PLOV_API void* SIM_array[2];
extern PLOV_API xsim_message_block* pxsim_hdr;
extern PLOV_API xsim_header_block* pXsim_ptr;

/*
 * Attaches the map, and loads it when this process is the first of the machine. Every function below does it by itself.
 * `comprc` is written only when this process loaded the map (0, or what failed) or something failed. sysrc 0, 2, or the
 * errno when the header block cannot be had. A failed load is not repeated: what it did not reach stays
 * XSIM_NOT_LOADED until somebody removes the shared objects.
 */
PLOV_API int32_t xsim_init(uint32_t* comprc);

/* Marks the first array as not loaded, for all processes. Always 0. */
PLOV_API int32_t xsim_uninit(void);

/* Whole fields. The buffer has the field's size; `override_lock` non-zero writes a locked field too. A write ends the
 * lock; when it changed a persistent field it returns after the permanent file is written. */
PLOV_API int32_t xsim_read(uint32_t id, void* buffer, uint32_t* comprc);
PLOV_API int32_t xsim_write(uint32_t id, const void* data, uint32_t override_lock, uint32_t* comprc);

/* The field's size in bytes; 0 when it is unknown, has no storage, or the map cannot be had. */
PLOV_API uint32_t xsim_size(uint32_t id);

/*
 * Pieces of a field. `pieces` is a count and as many pairs of offset (within the field) and length; the pieces' bytes
 * lie back to back in the buffer. Nothing compares a piece with the field's size, and some callers reach into the
 * neighbouring field on purpose; a list with a piece that leaves the data area is refused whole. xsim_sub_write writes
 * each changed piece of a persistent field to the permanent file, of which a failure is not told: `comprc` is 0.
 */
PLOV_API int32_t xsim_sub_read(uint32_t id, void* buffer, const uint32_t* pieces, uint32_t* comprc);
PLOV_API int32_t xsim_sub_write(uint32_t id, const void* data, const uint32_t* pieces, uint32_t override_lock,
                                uint32_t* comprc);

PLOV_API int32_t xsim_lock(uint32_t id, uint32_t* comprc);
PLOV_API int32_t xsim_unlock(uint32_t id, uint32_t* comprc);

/* The copy of a field's value that stands in the permanent file; the shared value is neither read nor changed. Writing
 * ends the lock; a failure of the file is not told: `comprc` is 0. */
PLOV_API int32_t xsim_file_read(uint32_t id, void* buffer, uint32_t* comprc);
PLOV_API int32_t xsim_file_write(uint32_t id, const void* data, uint32_t override_lock, uint32_t* comprc);

/*
 * Java-served fields. The length comes from "ywkzsfm.h", which is read at each call: 1 to 65,535, or 0 when the id is
 * not listed there. xsim_talk_2_java asks the Java side (direction 1, at most `length` bytes into the buffer; a shorter
 * value fills its front) or hands it a value (direction 0). `comprc` keeps the caller's value on success, but for an
 * empty value read, which gives 0.
 */
PLOV_API int32_t xsim_java_size(int32_t id);
PLOV_API int32_t xsim_talk_2_java(uint8_t direction, uint16_t id, uint16_t length, void* buffer, uint32_t* comprc);

PLOV_END_DECLS

#endif
