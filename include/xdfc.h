/*
 * File services: files are named by their bare names, and a path table says where they live. The calling convention
 * stands in plov_api.h.
 *
 * Names. A bare name ("wexolog.log") is looked up in the path table, read once a process from "ywkddfc.trm" in the
 * working directory, else in the directory that CONSOLE_PATH names (it must end in "/"; default "/console/"). A name
 * that begins with "!" is the explicit path that follows the "!".
 *
 * Threads. The path table is loaded by the first look-up, under a mutex of its own. A stream belongs to its caller and
 * is not shared by these functions.
 */
#ifndef XDFC_H
#define XDFC_H

#include <stdio.h>

#include "plov_api.h"

PLOV_BEGIN_DECLS

/* Open flags, a bit set. */
#define XDFC_E_OPEN 0x01u    /* an existing file is opened with its contents */
#define XDFC_E_REPLACE 0x02u /* an existing file loses its contents, but only together with XDFC_DE_CREAT */
#define XDFC_DE_CREAT 0x10u  /* a missing file is created */
#define XDFC_E_APPEND 0x100u /* xdfc_file_copy only: append to an existing target */

/* Access argument of xdfc_search_file_open: bit 0. */
#define XDFC_ACCESS_READ_WRITE 0
#define XDFC_ACCESS_READ_ONLY 1

/* What xdfc_search_file_open did. */
#define XDFC_ACTION_OPENED 1u
#define XDFC_ACTION_CREATED 2u

/* Reference points of the positioned operations; any other value counts as the beginning. */
#define XDFC_FROM_BEGINNING 0
#define XDFC_FROM_CURRENT 1
#define XDFC_FROM_END 2

/* `comprc` values besides the errno of a failing system call. */
#define XDFC_NO_ENTRY 2u          /* no path-table entry, or no such file */
#define XDFC_NO_MEMORY 12u        /* the copy buffer could not be allocated */
#define XDFC_EXISTS 22u           /* the file exists and no flag allows for it */
#define XDFC_TABLE_TOO_LARGE 500u /* an entry of the path table passes the table area */
#define XDFC_BAD_ARGUMENT_1 1024u /* first probed argument (see each function for the order) */
#define XDFC_BAD_ARGUMENT_2 1026u
#define XDFC_BAD_LENGTH 1028u
#define XDFC_BAD_ARGUMENT_3 1029u
#define XDFC_BAD_ARGUMENT_4 1030u
#define XDFC_BUFFER_TOO_SMALL 1031u /* xdfc_list_file_mem: a name does not fit into what is left */
#define XDFC_END_OF_FILE 1032u
#define XDFC_DISK_FULL 1033u

/* `comprc` values of xdfc_count_files and the remote emulations, which pass no errno on but ENAMETOOLONG: the trace has
 * it. */
#define XDFC_LIST_NO_WORKING_DIRECTORY 2u
#define XDFC_LIST_OPEN_FAILED 3u    /* xdfc_count_files: the directory cannot be opened */
#define XDFC_LIST_READ_FAILED 4u    /* xdfc_count_files: the directory cannot be read */
#define XDFC_LIST_STAT_FAILED 5u    /* an entry cannot be looked at; it may have vanished */
#define XDFC_LIST_GROW_FAILED 6u    /* the reply could not be enlarged */
#define XDFC_LIST_NO_MEMORY 7u      /* the reply could not be allocated */
#define XDFC_LIST_NOTHING 15u       /* xdfc_emul_ftp_nlst: no regular file matches */
#define XDFC_LIST_EMPTY 521u        /* the directory yields no entry at all */
#define XDFC_LIST_NO_DIRECTORY 549u /* the directory asked for cannot be read */
#define XDFC_LIST_NO_PATH 557u      /* the directory of the files asked for cannot be read */

/* Size of the buffer that xdfc_query_file_location fills. */
#define XDFC_PATH_SIZE 512u

/*
 * The path table as it stands in memory: entries back to back in file order, each {length, 0, flags, 0, pattern NUL,
 * directory NUL}; the length byte counts the whole entry and is read as a signed number. Length 0 ends the table.
 */
#define XDFC_TABLE_SIZE 133120u
extern PLOV_API unsigned char xdfc_file_req[XDFC_TABLE_SIZE];

/* Date of a file, in local time. */
typedef struct xdfc_file_date {
  uint16_t year; /* full year */
  uint8_t month; /* 1 to 12 */
  uint8_t day;   /* 1 to 31 */
  uint8_t hour;
  uint8_t minute;
  uint8_t second;
  uint8_t reserved; /* 0 */
} xdfc_file_date;
PLOV_STATIC_ASSERT(sizeof(xdfc_file_date) == 8, "the date record has 8 bytes");

/*
 * Finds the directory of a file by its name (1 to 255 characters) and writes it, with a trailing "/", to `path` (512
 * bytes; a longer directory gives 2 and ENAMETOOLONG). A search along PATH while PATH is empty leaves ";" in `path`.
 * Order of probes: comprc, name (1024), name's length (1028), path (1026). A table with entries of which none matches
 * gives sysrc 1 and comprc 2; an empty one 2 and 2; one that cannot be loaded 2 and the errno (or
 * XDFC_TABLE_TOO_LARGE). Test comprc, not sysrc, for a missing entry.
 */
PLOV_API int32_t xdfc_query_file_location(const char* name, char* path, uint32_t* comprc);

/*
 * Repairs the case of an absolute path in place against what is on disk; the file part is left alone when it holds a
 * "*". Result: 0 done or nothing to do, 2 a component was not found (`path` unchanged) or `path` is a bad pointer.
 */
PLOV_API int32_t xdfc_fixpathcase(char* path);

/*
 * Opens a file by search. `access` bit 0 set reads only, clear reads and writes. The stream is the caller's, to be
 * given back to xdfc_close_file. `*action` receives XDFC_ACTION_*. `handle` must point at sizeof(FILE) usable bytes:
 * that much is probed.
 */
PLOV_API int32_t xdfc_search_file_open(const char* name, uint32_t reserved1, int32_t access, uint32_t uOpenFlag,
                                       uint32_t reserved2, FILE** handle, uint32_t* action, uint32_t* comprc);

/* Opens a file by search with an fopen mode; EBUSY is tried 30 times, a millisecond apart. The descriptor is
 * close-on-exec. */
PLOV_API int32_t xdfc_search_file_open2(const char* name, const char* mode, FILE** handle, uint32_t* comprc);

/*
 * One transfer of `count` items of `size` bytes at the stream's position. `*done` receives the items transferred. Only
 * the first item's bytes of `buf` are probed. Reading at the end of the file is XDFC_END_OF_FILE; a full disk
 * XDFC_DISK_FULL.
 */
PLOV_API int32_t xdfc_read(void* buf, size_t size, size_t count, FILE* handle, int32_t* done, uint32_t* comprc);
PLOV_API int32_t xdfc_write(const void* buf, size_t size, size_t count, FILE* handle, int32_t* done, uint32_t* comprc);

/*
 * One transfer of `length` bytes at `offset` from a reference point. `*done` receives the bytes transferred, `*newpos`
 * the position behind them. Reading nothing at the end of the file is success.
 */
PLOV_API int32_t xdfc_random_read(FILE* handle, void* buf, size_t length, int32_t refpoint, long offset, uint32_t* done,
                                  uint32_t* newpos, uint32_t* comprc);
PLOV_API int32_t xdfc_random_write(FILE* handle, const void* buf, size_t length, int32_t refpoint, long offset,
                                   uint32_t* done, uint32_t* newpos, uint32_t* comprc);

/* Closes a stream. Unless a probe fails (sysrc 1, or XDFC_BAD_ARGUMENT_1) it is gone, whatever the result. */
PLOV_API int32_t xdfc_close_file(FILE* handle, uint32_t* comprc);

PLOV_API int32_t xdfc_delete_file(const char* name, uint32_t* comprc);

/*
 * Copies a file and gives the target the source's times, even when the copy failed part way; what was written is kept.
 * An existing target needs XDFC_E_APPEND (appended to) or XDFC_E_OPEN/XDFC_E_REPLACE (overwritten); a file copied onto
 * itself is XDFC_EXISTS whatever the flags. Names have 1 to 512 characters.
 */
PLOV_API int32_t xdfc_file_copy(const char* source, const char* target, uint32_t flags, uint32_t* comprc);

/* Size in bytes, cut to 32 bits. */
PLOV_API int32_t xdfc_query_file_size(const char* name, uint32_t* size, uint32_t* comprc);

/* Time of the last status change, in local time. */
PLOV_API int32_t xdfc_query_file_date(const char* name, xdfc_file_date* date, uint32_t* comprc);

/* Free space of the file system that holds `path`, the superuser's reserve included: bytes (0x7FFFFFFF when there are
 * more than 2 GiB), kilobytes (at most 0x7FFFFFFF). `path` is not looked up. */
PLOV_API int32_t xdfc_disk_space(const char* path, uint32_t* bytes_free, uint32_t* comprc);
PLOV_API int32_t xdfc_disk_space2(const char* path, int32_t* kb_free, uint32_t* comprc);

/*
 * Listings. `pattern` is a path, not looked up in the path table, whose last component is a shell wildcard pattern (*,
 * ?, [...]) for names; a relative one counts from the working directory. It is not empty, and its directory has at most
 * 255 characters with the working directory in front, else XDFC_BAD_LENGTH. A "*" matches hidden names too, and in the
 * first two functions "." and "..". Names are given as they are on disk, with whatever characters they hold.
 */

/*
 * Writes a listing of every entry that matches, in the directory's own order, into `listfile`, a name as
 * xdfc_search_file_open2 takes it: the count, left-aligned in 7 columns, and a line feed; then for each entry 78 bytes:
 *    0 name, cut to 49     49 size, right-aligned in 10 (its last digits)     60 " mm-dd-yy"     70 " hh:mm"
 *   76 "a" or "p"          77 line feed;                                      all else blank
 * Date and time are those of the last status change, in local time, on a clock of 12 hours with midnight as 0. Of what
 * cannot be looked at (a link to nowhere, a file that vanished) only the name is given. `pattern` has 1 to 255
 * characters. Order of probes: comprc, pattern (1024), its length (1028), listfile (1026). Without a match
 * XDFC_NO_ENTRY and no file is written. `comprc` is else the errno, a full disk being ENOSPC; the count is written then
 * too.
 */
PLOV_API int32_t xdfc_list_file(const char* pattern, const char* listfile, uint32_t* comprc);

/*
 * Writes the names of all entries that match, each with its NUL, back to back into `buffer`, and their number to
 * `*count`: 0 is success too. A name that does not fit into the `size` bytes gives XDFC_BUFFER_TOO_SMALL; those before
 * it are there and counted. `pattern` has 1 to 255 characters. Order of probes: comprc, pattern (1024), its length
 * (1028), buffer (1026), count (1029).
 */
PLOV_API int32_t xdfc_list_file_mem(const char* pattern, char* buffer, uint32_t size, uint32_t* count,
                                    uint32_t* comprc);

/*
 * Counts the regular files that match, links to such included. A link to nowhere that matches is a failure
 * (XDFC_LIST_STAT_FAILED), and after any failure `*count` is 0. Order of probes: comprc, count (1024), pattern (1026).
 */
PLOV_API int32_t xdfc_count_files(uint32_t* count, const char* pattern, uint32_t* comprc);

/*
 * The replies of a remote directory command (in the manner of "ls -l", with numbers for owner and group, block devices
 * as "c") and of the FTP command NLST (the names of regular files, no links), sorted by name, a line feed behind each
 * line. Directories are found, and names match, whatever their case. A pattern that names a directory means all that is
 * in it. With a pattern NLST leaves out the hidden names that the pattern does not begin with a "." for.
 *
 * A long listing of a directory, or of all names ("*"), begins with "total " and the number of 512-byte blocks of all
 * entries. One without a match is success with NULL, a name list without one XDFC_LIST_NOTHING.
 *
 * `*reply` is the caller's, to be freed with plovmemdebug_free; it is NULL when there is nothing, and after a failure
 * holds what there was until then (free it too). Order of probes: comprc, pattern (1026), reply (1024).
 */
PLOV_API int32_t xdfc_emul_xrem_dir(char** reply, const char* pattern, uint32_t* comprc);
PLOV_API int32_t xdfc_emul_ftp_nlst(char** reply, const char* pattern, uint32_t* comprc);

PLOV_END_DECLS

#endif
