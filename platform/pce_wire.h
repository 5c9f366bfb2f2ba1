/*
 * Messages between a process and the process-control daemon: a local stream socket, the machine's byte order, one
 * layout for processes of both word sizes. A message begins with the header, whose length counts the whole message.
 *
 * The daemon answers each request with the header alone, its code raised by PCE_ACK. A crashed process does not wait
 * for the answer: its bytes arrive though it ends.
 */
#ifndef PCE_WIRE_H
#define PCE_WIRE_H

#include "plov_api.h"

PLOV_BEGIN_DECLS

/* Path of the daemon's socket: the platform's temporary directory in place of "%s". */
#define PCE_DAEMON_SOCKET "%s-SOCKET-YWKEPPCE-DISPATCH.XPCE"

#define SMSG_TAKE_LOG_REQ 0x501u
#define SMSG_REGISTER_REQ 0x502u
#define SMSG_DEREGISTER_REQ 0x503u
#define SMSG_GENERIC_ACK 0x1500u
#define SMSG_TAKE_LOG_ACK 0x1501u
#define SMSG_REGISTER_ACK 0x1502u
#define SMSG_DEREGISTER_ACK 0x1503u
#define PCE_ACK 0x1000u /* added to a request's code */

#define PCE_REPORT_TEXT_SIZE 4096u
#define PCE_STACK_AREA_SIZE 20480u
#define PCE_TRACE_AREA_SIZE 40960u
#define PCE_BACKTRACE_SIZE 6650u
#define PCE_PROGRAM_NAME_SIZE 128u
#define PCE_FRAME_LIMIT 20u /* offsets at the head of the stack area */

/* De-registration and every acknowledgement are the header alone. 20 bytes. */
typedef struct PLOV_PACKED pce_wire_header {
  uint32_t length; /* of the message, this header included */
  uint32_t code;   /* SMSG_* */
  uint32_t unused; /* not filled by the sender: read nothing into it */
  uint32_t pid;
  uint32_t tid;
} pce_wire_header;

/* 150 bytes. */
typedef struct PLOV_PACKED pce_wire_register {
  pce_wire_header header;
  uint16_t process_type;                    /* 0 temporary, 1 permanent, 2 problem analysis, 3 no async */
  char program_name[PCE_PROGRAM_NAME_SIZE]; /* NUL-terminated */
} pce_wire_register;

/*
 * The exception report of a dying process. 113,194 bytes. A length says how many bytes of the area behind it are used;
 * what lies behind them is zero.
 */
typedef struct PLOV_PACKED pce_wire_take_log {
  pce_wire_header header;
  uint32_t report_id; /* 0x40A temporary, 0x40C permanent, 0x400 problem analysis, 0x40E no async */
  uint32_t signal;
  uint32_t text_length; /* of the lines, each counted with its NUL */
  char text[PCE_REPORT_TEXT_SIZE];
  uint32_t stack_length; /* the end of the last frame's copy */
  uint8_t stack[PCE_STACK_AREA_SIZE];
  uint32_t process_trace_length; /* 40,960, or 0 when it could not be fetched */
  char process_trace[PCE_TRACE_AREA_SIZE];
  uint32_t thread_trace_length; /* 40,960 or 0 */
  char thread_trace[PCE_TRACE_AREA_SIZE];
  uint32_t backtrace_length;
  char backtrace[PCE_BACKTRACE_SIZE];
} pce_wire_take_log;

/* Head of the stack area: where the copy of frame n begins, counted from the area's first byte, in offset[n - 1]. */
typedef struct PLOV_PACKED pce_wire_frame_table {
  uint16_t offset[PCE_FRAME_LIMIT];
} pce_wire_frame_table;

PLOV_STATIC_ASSERT(sizeof(pce_wire_header) == 20, "one layout for both word sizes");
PLOV_STATIC_ASSERT(offsetof(pce_wire_header, code) == 4, "one layout for both word sizes");
PLOV_STATIC_ASSERT(offsetof(pce_wire_header, pid) == 12, "one layout for both word sizes");
PLOV_STATIC_ASSERT(offsetof(pce_wire_header, tid) == 16, "one layout for both word sizes");
PLOV_STATIC_ASSERT(sizeof(pce_wire_register) == 150, "one layout for both word sizes");
PLOV_STATIC_ASSERT(offsetof(pce_wire_register, process_type) == 20, "one layout for both word sizes");
PLOV_STATIC_ASSERT(offsetof(pce_wire_register, program_name) == 22, "one layout for both word sizes");
PLOV_STATIC_ASSERT(sizeof(pce_wire_take_log) == 113194, "one layout for both word sizes");
PLOV_STATIC_ASSERT(offsetof(pce_wire_take_log, report_id) == 20, "one layout for both word sizes");
PLOV_STATIC_ASSERT(offsetof(pce_wire_take_log, signal) == 24, "one layout for both word sizes");
PLOV_STATIC_ASSERT(offsetof(pce_wire_take_log, text_length) == 28, "one layout for both word sizes");
PLOV_STATIC_ASSERT(offsetof(pce_wire_take_log, text) == 32, "one layout for both word sizes");
PLOV_STATIC_ASSERT(offsetof(pce_wire_take_log, stack_length) == 4128, "one layout for both word sizes");
PLOV_STATIC_ASSERT(offsetof(pce_wire_take_log, stack) == 4132, "one layout for both word sizes");
PLOV_STATIC_ASSERT(offsetof(pce_wire_take_log, process_trace_length) == 24612, "one layout for both word sizes");
PLOV_STATIC_ASSERT(offsetof(pce_wire_take_log, process_trace) == 24616, "one layout for both word sizes");
PLOV_STATIC_ASSERT(offsetof(pce_wire_take_log, thread_trace_length) == 65576, "one layout for both word sizes");
PLOV_STATIC_ASSERT(offsetof(pce_wire_take_log, thread_trace) == 65580, "one layout for both word sizes");
PLOV_STATIC_ASSERT(offsetof(pce_wire_take_log, backtrace_length) == 106540, "one layout for both word sizes");
PLOV_STATIC_ASSERT(offsetof(pce_wire_take_log, backtrace) == 106544, "one layout for both word sizes");
PLOV_STATIC_ASSERT(sizeof(pce_wire_frame_table) == 40, "one layout for both word sizes");

PLOV_END_DECLS

#endif
