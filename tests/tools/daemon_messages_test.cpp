// The daemon's pure pieces: streams cut at every boundary, lengths that lie.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "message_reader.h"
#include "report_entry.h"
#include "support/daemon_client.h"

namespace {

using namespace plov::pced;
using State = MessageReader::State;

struct Stream {
  ReportPool pool{1};
  MessageReader reader;
  std::string messages;  // what came out of it

  void feed(std::string_view bytes) {
    while (!bytes.empty() && reader.state() != State::garbage) {
      const auto room = reader.room();
      const size_t count = std::min(room.size(), bytes.size());
      memcpy(room.data(), bytes.data(), count);
      reader.advance(count);
      bytes.remove_prefix(count);
      if (reader.state() == State::needs_memory) reader.give_memory(pool.take());
      if (reader.state() != State::complete) continue;
      if (reader.header().code == SMSG_TAKE_LOG_REQ)
        messages += test::bytes_of(*reader.take_report());
      else
        messages += test::bytes_of(&reader.registration(), reader.header().length);
      reader.next();
    }
  }
};

TEST(MessageReader, PutsTogetherWhatIsCutAnywhere) {
  const std::string small = test::registration("cut", 3) + test::deregistration() + test::registration("again");
  const std::string all = small + test::bytes_of(*test::crash_report("cut")) + small;
  for (size_t cut = 1; cut < all.size(); cut += cut < 500 || all.size() - cut < 500 ? 1 : 97) {
    Stream stream;
    stream.feed(std::string_view(all).substr(0, cut));
    stream.feed(std::string_view(all).substr(cut));
    ASSERT_EQ(stream.messages, all) << "cut at " << cut;
    ASSERT_FALSE(stream.reader.begun());
  }
  Stream bytewise;
  for (char byte : small) bytewise.feed({&byte, 1});
  EXPECT_EQ(bytewise.messages, small);
}

TEST(MessageReader, BelievesNoOtherLength) {
  for (const uint32_t code :
       {SMSG_REGISTER_REQ, SMSG_DEREGISTER_REQ, SMSG_TAKE_LOG_REQ, SMSG_TAKE_LOG_ACK, kTableRequest, 0u})
    for (const uint32_t length : {0u, 1u, 19u, 21u, 151u, 113193u, 113195u, 0xFFFFFFFFu}) {
      Stream stream;
      const pce_wire_header header = {length, code, 0, 1, 1};
      stream.feed(test::bytes_of(&header, sizeof header));
      EXPECT_EQ(stream.reader.state(), State::garbage) << code << " " << length;
      EXPECT_TRUE(stream.reader.room().empty());
    }
}

TEST(MessageReader, KeepsTheTextOfACutReport) {
  const auto report = test::crash_report("cut");
  for (const size_t length : {0u, 19u, 20u, 4127u, 4130u, 4140u, 113193u}) {
    Stream stream;
    stream.feed(test::bytes_of(*report).substr(0, length));
    const ReportPtr cut = stream.reader.take_cut_report();
    ASSERT_EQ(cut != nullptr, length >= 4128) << length;
    if (!cut) continue;
    EXPECT_EQ(report_lines(*cut), report_lines(*report));
    EXPECT_EQ(cut->stack_length, length < 4132 ? 0u : length < 5000 ? 8u : 48u);
    EXPECT_EQ(cut->backtrace_length, length < 113193 ? 0u : report->backtrace_length);
  }
}

TEST(ReportPool, IsBounded) {
  ReportPool pool(2);
  ReportPtr first = pool.take(), second = pool.take();
  EXPECT_TRUE(first && second);
  EXPECT_FALSE(pool.take());
  first.reset();
  EXPECT_TRUE(pool.take());
}

TEST(ReportEntry, BelievesLengthsOnlyUpToTheirAreas) {
  auto report = std::make_unique<pce_wire_take_log>();
  memset(report.get(), 0xFF, sizeof *report);
  ReportEntry entry(*report);
  EXPECT_EQ(entry.request().data_size, PCE_REPORT_TEXT_SIZE);
  uint32_t sizes = 0;
  for (const xlog_data_node* node = entry.request().chain; node; node = node->next) sizes += node->data_size;
  EXPECT_EQ(sizes, PCE_STACK_AREA_SIZE + PCE_BACKTRACE_SIZE + PCE_TRACE_AREA_SIZE) << "two equal traces are kept once";
  EXPECT_EQ(report_lines(*report), std::vector<std::string>(1, std::string(PCE_REPORT_TEXT_SIZE, '\xFF')));
  const pce_wire_take_log nothing = {};
  EXPECT_EQ(ReportEntry(nothing).request().chain, nullptr);
}

}  // namespace
