// Messages to the daemon.
#ifndef PLOV_PCE_SEND_H
#define PLOV_PCE_SEND_H

#include <stdint.h>

#include "pce.h"

namespace plov::pce {

inline constexpr uint32_t kSendTime = 30000;  // milliseconds

// The name of a message code, written to `out` (kMessageNameSize bytes). Signal-safe.
inline constexpr uint32_t kMessageNameSize = 32;
char* pce_msg_2_strg(uint32_t code, char* out);

// Sends a message, whose header says how long it is. 0, or why it did not go whole. With the record's crash flag set it
// is signal-safe, and otherwise a short send is also reported as an event.
int32_t pce_send_a_msg(pce_call_record& record, int32_t socket, const void* message, uint32_t timeout);

// The same for a message in pieces, the first of which begins with the header. A short piece ends it: 11. Its events
// are of the lesser kind.
struct Piece {
  const void* address;
  uint32_t length;
};
int32_t pce_send_a_msgv(pce_call_record& record, int32_t socket, const Piece* pieces, uint32_t count, uint32_t timeout);

}  // namespace plov::pce

#endif
