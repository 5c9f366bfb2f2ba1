#include "pce/send.h"

#include <stdio.h>
#include <string.h>

#include "frame/event.h"
#include "frame/trace_line.h"
#include "pce/failure.h"
#include "pce_wire.h"
#include "xpce.h"

namespace plov::pce {
namespace {

using frame::pce_trace_line;

constexpr uint32_t kLargestPiece = 16384;
constexpr int32_t kShortPiece = 11;

pce_wire_header header_of(const void* message) {
  pce_wire_header header;
  memcpy(&header, message, sizeof header);
  return header;
}

// A send that went in part. Messages 0x700 and 0x701 take the two sizes in their first line, the socket and the
// message's name in their second.
void report_short(pce_call_record& record, const char* function, uint32_t id, uint32_t size, uint32_t sent,
                  int32_t socket, const char* name, frame::EventCall event) {
  char* line1 = nullptr;
  char* line2 = nullptr;
  pce_lookup_err(&record, err_info.count, err_info.table, &line1, id, 1, size, sent);
  pce_lookup_err(&record, err_info.count, err_info.table, &line2, id, 2, static_cast<uint32_t>(socket), name);
  frame::report_event(event, record, function, line1, line2, id);
}

}  // namespace

char* pce_msg_2_strg(uint32_t code, char* out) {
  pce_trace_line('D', "-> pce_msg_2_strg: Got Here!");
  static constexpr struct {
    uint32_t code;
    const char* name;
  } kNames[] = {{SMSG_TAKE_LOG_REQ, "SMSG_TAKE_LOG_REQ"},     {SMSG_REGISTER_REQ, "SMSG_REGISTER_REQ"},
                {SMSG_DEREGISTER_REQ, "SMSG_DEREGISTER_REQ"}, {SMSG_GENERIC_ACK, "SMSG_GENERIC_ACK"},
                {SMSG_TAKE_LOG_ACK, "SMSG_TAKE_LOG_ACK"},     {SMSG_REGISTER_ACK, "SMSG_REGISTER_ACK"},
                {SMSG_DEREGISTER_ACK, "SMSG_DEREGISTER_ACK"}};
  snprintf(out, kMessageNameSize, "Unknown message 0x%X", code);
  for (const auto& known : kNames)
    if (known.code == code) snprintf(out, kMessageNameSize, "%s", known.name);
  pce_trace_line('D', "<- pce_msg_2_strg: Leaving");
  return out;
}

int32_t pce_send_a_msg(pce_call_record& record, int32_t socket, const void* message, uint32_t timeout) {
  pce_trace_line('D', "-> pce_send_a_msg: ");
  const pce_wire_header header = header_of(message);
  char name[kMessageNameSize];
  pce_trace_line('F', "   pce_send_a_msg: Sending a >%s< message of size %u", pce_msg_2_strg(header.code, name),
                 header.length);
  uint32_t sent = 0;
  int32_t result = pce_tmr_send(&record, socket, message, header.length, kLargestPiece, &sent, timeout);
  if (result == 0 && sent != header.length) {
    fail(record, XPCE_SHORT_SEND, static_cast<uint32_t>(result));
    result = kFailed;
    if (record.crash != 0) {
      pce_trace_line('F', "   pce_send_a_msg: ERROR!!! Actual size %u != sent size %u", header.length, sent);
      pce_trace_line('F', "                 : Socket is %d, Msg is %s", socket, name);
    } else {
      report_short(record, "pce_send_a_msg", XPCE_SHORT_SEND, header.length, sent, socket, name, pce_log_event);
    }
  }
  pce_trace_line('D', "<- pce_send_a_msg");
  return result;
}

int32_t pce_send_a_msgv(pce_call_record& record, int32_t socket, const Piece* pieces, uint32_t count,
                        uint32_t timeout) {
  const pce_wire_header header = header_of(pieces->address);
  char name[kMessageNameSize];
  pce_trace_line('D', "-> pce_send_a_msgv: Sending a message on socket %u", static_cast<uint32_t>(socket));
  pce_trace_line('D', "                  : Message type >%s< of size %u", pce_msg_2_strg(header.code, name),
                 header.length);
  uint32_t total = 0;
  int32_t result = 0;
  for (uint32_t i = 0; i < count && result == 0; ++i) {
    uint32_t sent = 0;
    result = pce_tmr_send(&record, socket, pieces[i].address, pieces[i].length, kLargestPiece, &sent, timeout);
    total += sent;
    if (result != 0 || sent == pieces[i].length) continue;
    pce_trace_line('F', "   pce_send_a_msgv: Actual size %u != sent size %u", pieces[i].length, sent);
    fail(record, XPCE_SHORT_SEND, static_cast<uint32_t>(result));
    if (record.crash == 0)
      report_short(record, "pce_send_a_msgv", XPCE_SHORT_SEND, pieces[i].length, sent, socket, name, pce_put_event);
    result = kShortPiece;
  }
  if (total != header.length) {
    fail(record, XPCE_SHORT_TOTAL, static_cast<uint32_t>(result));
    if (record.crash == 0)
      report_short(record, "pce_send_a_msgv", XPCE_SHORT_TOTAL, header.length, total, socket, name, pce_put_event);
    if (result == 0) result = kFailed;
  }
  pce_trace_line('D', "<- pce_send_a_msgv");
  return result;
}

}  // namespace plov::pce
