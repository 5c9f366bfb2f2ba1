/*
 * Restart and shutdown of the machine. The calling convention stands in plov_api.h, but for one thing: `comprc` is the
 * first argument here.
 */
#ifndef XBT_H
#define XBT_H

#include "plov_api.h"

PLOV_BEGIN_DECLS

/* Restart types. The Java side is given the number as it stands; the local command makes no difference of 1 and 2. */
#define XBT_REBOOT_1 1u
#define XBT_REBOOT_2 2u
#define XBT_HALT 3u
#define XBT_POWER_OFF 4u

#define XBT_NAME_LIMIT 256u /* characters of an application name */

/* `comprc` values, sysrc 2: nothing was asked for or done. */
#define XBT_BAD_NAME 1u    /* the application name is unreadable, empty or too long */
#define XBT_BAD_MESSAGE 2u /* the name became so between two looks; a bad message is never refused */
#define XBT_BAD_TYPE 3u    /* the restart type is not 1 to 4 */

/* `comprc` values, sysrc 2: the Java side has answered so, and there is no local shutdown. */
#define XBT_JAVA_ANSWERED_2 0x80u
#define XBT_JAVA_ANSWERED_1 0x81u

/*
 * `comprc` values, sysrc 8, each also a message number of the table below and the error code of an event in the log.
 * The local command was run, but for the last one and but for a string not released after a good answer.
 */
#define XBT_NO_STRING 0x5080u      /* a Java string could not be made, or there is no Java side in this process */
#define XBT_NOT_RELEASED 0x5081u   /* a Java string could not be released; what else was done stands */
#define XBT_CALL_FAILED 0x5082u    /* the Java method could not be called, or it threw */
#define XBT_BAD_ANSWER 0x5083u     /* the Java method answered neither 0, 1 nor 2 */
#define XBT_COMMAND_FAILED 0x5085u /* neither the Java side nor the local command: the machine runs on */

/*
 * Asks the Java side, the static method nativeRestart of com.zanth.vemra.fw.shutdown.ShutdownManager, to restart or
 * stop the machine in an orderly way. When it cannot be reached, or answers something unknown, the machine is shut
 * down from here with the system's command: "reboot" for types 1 and 2, "halt" for 3, "poweroff" for 4, run by
 * `system`. An asked-for restart does not fail quietly: its failures are events in the log.
 *
 * `application_name` (1 to XBT_NAME_LIMIT bytes) and `application_message` (of any length) are UTF-8, say who asks and
 * why, and stay the caller's. A message that is NULL or cannot be read is taken as "". Probed in this order: comprc,
 * name, type.
 *
 * Result 0: the Java side has accepted. Returns when the Java side has answered, or when the command has ended: the
 * process may well be gone before that. To be called without a lock of the log: under one the Java side is passed by,
 * since the VM takes faults of its own that the log's crash guard would see.
 */
PLOV_API int32_t xbt_restart(uint32_t* comprc, const char* application_name, const char* application_message,
                             uint32_t restart_type);

/*
 * The component's failure texts. Two entries of one id are its lines 1 and 2, one entry is line 1 alone; the first four
 * are those of the look-up itself, the last one is a sentinel.
 */
typedef struct xbt_message {
  uint32_t id;
  char text[80]; /* printf format, NUL-terminated */
} xbt_message;
PLOV_STATIC_ASSERT(sizeof(xbt_message) == 84, "an entry is an id and its text");

typedef struct xbt_message_info {
  uint32_t count; /* entries, sentinel included */
  const xbt_message* table;
} xbt_message_info;

extern PLOV_API const xbt_message bt_err_list[16];
extern PLOV_API const xbt_message_info bt_err_info;

PLOV_END_DECLS

#endif
