// Messages to the daemon in pieces, over a socket that takes as much as a test lets it.
#include "pce/send.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include "pce.h"
#include "pce_wire.h"
#include "xpce.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string taken;
size_t room;    // for further bytes
int32_t error;  // when there is none
std::vector<std::string> events;

}  // namespace

int32_t pce_tmr_send(pce_call_record*, int32_t, const void* message, uint32_t length, uint32_t, uint32_t* sent,
                     uint32_t) {
  *sent = static_cast<uint32_t>(std::min<size_t>(length, room));
  taken.append(static_cast<const char*>(message), *sent);
  room -= *sent;
  return *sent == length ? 0 : error;
}

int32_t pce_put_event(const pce_call_record* record, const char*, char* line1, char* line2, uint32_t) {
  events.push_back(std::string(line1) + "\n" + line2);
  for (char* line : {line1, line2}) pce_free(const_cast<pce_call_record*>(record), line);
  return 0;
}

namespace {

using Outcome = std::tuple<int32_t, uint32_t, uint32_t>;  // result, comprc, sysrc

// A message of 20 + 30 bytes, whose header says `length`.
Outcome send_pieces(size_t limit, int32_t failure = 0, uint32_t length = 50, uint32_t crash = 0) {
  taken.clear();
  events.clear();
  room = limit;
  error = failure;
  const pce_wire_header header = {length, SMSG_REGISTER_REQ, 0, 1, 2};
  const std::string body(30, 'b');
  const plov::pce::Piece pieces[] = {{&header, sizeof header}, {body.data(), 30}};
  pce_call_record record = {};
  record.crash = crash;
  const int32_t result = plov::pce::pce_send_a_msgv(record, 5, pieces, 2, 30000);
  return {result, record.comprc, record.sysrc};
}

TEST(Pieces, GoOneBehindTheOther) {
  EXPECT_EQ(send_pieces(100), Outcome(0, 0, 0));
  EXPECT_EQ(taken.substr(20), std::string(30, 'b'));
  EXPECT_THAT(events, IsEmpty());
}

TEST(Pieces, EndWithAShortOne) {
  EXPECT_EQ(send_pieces(12), Outcome(11, XPCE_SHORT_SEND, 8));
  EXPECT_EQ(taken.size(), 12u);
  EXPECT_THAT(events, ElementsAre("Actual size 20 != sent size 12\nSocket is 5, Msg is SMSG_REGISTER_REQ",
                                  "Total Message size 50 != sent size 12\nSocket is 5, Msg is SMSG_REGISTER_REQ"));
  EXPECT_EQ(send_pieces(12, 0, 50, 1), Outcome(11, XPCE_SHORT_SEND, 8));
  EXPECT_THAT(events, IsEmpty()) << "nothing is logged in a crash";
}

TEST(Pieces, ThatDoNotMakeTheMessageAreAFailure) {
  EXPECT_EQ(send_pieces(100, 0, 60), Outcome(8, XPCE_SHORT_TOTAL, 8));
  EXPECT_THAT(events, ElementsAre("Total Message size 60 != sent size 50\nSocket is 5, Msg is SMSG_REGISTER_REQ"));
  EXPECT_EQ(std::get<0>(send_pieces(20, 32)), 32) << "the send's own";
}

}  // namespace
