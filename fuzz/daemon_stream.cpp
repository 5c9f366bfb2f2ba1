// Arbitrary bytes as what several peers of the process-control daemon send, in pieces of arbitrary length: messages
// come out as they would of the whole stream, no more memory is in hand than the pool has, the table holds a process a
// peer at most, and an entry reads nothing outside its report.
#include <algorithm>
#include <string>

#include "fuzz/support.h"
#include "message_reader.h"
#include "process_table.h"
#include "report_entry.h"

namespace {

using namespace plov::pced;
using State = MessageReader::State;

constexpr unsigned kPeers = 3;

class Daemon {
 public:
  // False when the peer had to be closed: it sent garbage, or there is no memory for its report now.
  bool feed(PeerId peer, const uint8_t* bytes, size_t size) {
    MessageReader& reader = readers_[peer];
    while (size > 0) {
      if (reader.state() == State::needs_memory) {
        ReportPtr memory = pool_.take();
        if (!memory) return close(peer);
        reader.give_memory(std::move(memory));
      }
      const auto room = reader.room();
      require(room.empty() == (reader.state() == State::garbage));
      if (room.empty()) return close(peer);
      const size_t count = std::min(room.size(), size);
      memcpy(room.data(), bytes, count);
      reader.advance(count);
      bytes += count;
      size -= count;
      if (reader.state() == State::complete) take(peer, reader);
    }
    return true;
  }

  bool close(PeerId peer) {
    if (const ReportPtr cut = readers_[peer].take_cut_report()) record(*cut);
    readers_[peer] = {};
    table_.forget(peer);
    require(!table_.knows(peer));
    return false;
  }

  const std::string& messages(PeerId peer) const { return messages_[peer]; }

 private:
  void take(PeerId peer, MessageReader& reader) {
    const pce_wire_header header = reader.header();
    messages_[peer].append(reinterpret_cast<const char*>(&header), sizeof header);
    if (header.code == SMSG_REGISTER_REQ) table_.add(peer, 1, reader.registration(), 1);
    if (header.code == SMSG_DEREGISTER_REQ) table_.remove(peer);
    if (header.code == SMSG_TAKE_LOG_REQ) record(*reader.take_report());
    reader.next();
    require(!reader.begun() && table_.size() <= kPeers && !table_.to_json().empty());
  }

  static void record(const pce_wire_take_log& report) {
    const auto exact_report = exact(&report, sizeof report);
    const auto& copy = *reinterpret_cast<const pce_wire_take_log*>(exact_report.get());
    ReportEntry entry(copy);
    unsigned sum = 0;
    const auto read = [&sum](const void* data, uint32_t size) {
      for (uint32_t i = 0; i < size; ++i) sum += static_cast<const uint8_t*>(data)[i];
    };
    read(entry.request().data, entry.request().data_size);
    for (const xlog_data_node* node = entry.request().chain; node; node = node->next)
      read(node->data_ptr, node->data_size);
    size_t text = 0;
    for (const std::string& line : report_lines(copy)) text += line.size() + 1;
    require(text <= PCE_REPORT_TEXT_SIZE + 1 && sum != 1234567890);
  }

  ReportPool pool_{kPeers - 1};
  MessageReader readers_[kPeers];
  ProcessTable table_{0};
  std::string messages_[kPeers];
};

}  // namespace

// A piece begins with two bytes: the peer in the two highest bits of the first (3 closes the one of the next bits), its
// length in the rest. Pieces of the largest length stand for a report's worth of bytes.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Daemon daemon;
  std::string first_peer;  // all that it sent while it was never closed
  bool closed = false;
  while (size >= 2) {
    const unsigned peer = data[0] >> 6;
    const size_t stated = (data[0] & 0x3Fu) << 8 | data[1], length = std::min<size_t>(stated, size - 2);
    if (peer == kPeers) {
      daemon.close(data[1] % kPeers);
      closed |= data[1] % kPeers == 0;
    } else {
      std::string bytes(reinterpret_cast<const char*>(data + 2), length);
      if (stated == 0x3FFF && length > 0) bytes.resize(sizeof(pce_wire_take_log), bytes.back());
      const bool open = daemon.feed(peer, reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
      if (peer == 0) first_peer += bytes;
      closed |= peer == 0 && !open;
    }
    const size_t used = 2 + (peer == kPeers ? 0 : length);
    data += used;
    size -= used;
  }
  if (closed) return 0;
  Daemon whole;
  require(whole.feed(0, reinterpret_cast<const uint8_t*>(first_peer.data()), first_peer.size()));
  require(whole.messages(0) == daemon.messages(0));
  return 0;
}
