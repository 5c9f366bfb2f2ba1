// The two halves of the demonstration.
//   plovdemo record LEDGER CLASS FILE...   records each file as one event of the class, its bytes in blocks, and notes
//   what went in plovdemo verify LEDGER LOGFILE         reads the events back by class, by time and by pattern and
//   compares every byte
// The ledger is a directory with one file an event: a line of numbers, then the bytes of its blocks.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "xlog.h"

namespace {

constexpr size_t kChunk = 60000;  // bytes of a block, below the largest that a log takes
constexpr uint8_t kFirstBlockId = 0x40;

using Identity =
    std::tuple<unsigned, unsigned, unsigned, unsigned, unsigned>;  // class, type, user, seconds, hundredths

struct Event {
  Identity identity;
  std::vector<std::string> blocks;
};

Identity identity_of(xlog_eventid id, xlog_timestamp stamp) {
  return {unsigned{id.classes}, unsigned{id.log_type}, unsigned{id.user}, unsigned{stamp.seconds},
          unsigned{stamp.hundredths}};
}

[[noreturn]] void give_up(const std::string& what) {
  fprintf(stderr, "plovdemo: %s\n", what.c_str());
  exit(1);
}

std::string read_whole(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) give_up("cannot read " + path);
  return {std::istreambuf_iterator<char>(in), {}};
}

std::vector<std::string> in_blocks(const std::string& bytes) {
  std::vector<std::string> blocks;
  for (size_t at = 0; at < bytes.size() && blocks.size() < 100; at += kChunk)
    blocks.push_back(bytes.substr(at, kChunk));
  return blocks;
}

void note(const std::string& ledger, const Event& event) {
  static int number = 0;
  std::ofstream out(ledger + "/" + std::to_string(getpid()) + "-" + std::to_string(++number), std::ios::binary);
  const auto& [classes, type, user, seconds, hundredths] = event.identity;
  out << classes << ' ' << type << ' ' << user << ' ' << seconds << ' ' << hundredths << ' ' << event.blocks.size();
  for (const auto& block : event.blocks) out << ' ' << block.size();
  out << '\n';
  for (const auto& block : event.blocks) out << block;
  if (!out.flush()) give_up("cannot write the ledger");
}

int record(const std::string& ledger, unsigned classes, char** files, int count) {
  for (int i = 0; i < count; ++i) {
    const std::string path = files[i], name = std::filesystem::path(path).filename().string();
    Event event;
    event.blocks = in_blocks(read_whole(path));
    std::vector<xlog_data_node> nodes(event.blocks.size());
    for (size_t b = 0; b < nodes.size(); ++b)
      nodes[b] = {static_cast<uint32_t>(event.blocks[b].size()), static_cast<uint8_t>(kFirstBlockId + b),
                  event.blocks[b].data(), b + 1 < nodes.size() ? &nodes[b + 1] : nullptr};
    xlog_log_request request = {};
    request.flags = XLOG_STANDARD_LOG_FLAG;
    request.eventid = {static_cast<uint8_t>(classes), static_cast<uint8_t>(i), static_cast<uint16_t>(getpid())};
    memcpy(request.event_name, name.data(), std::min<size_t>(name.size(), XLOG_NAME_SIZE));
    request.data = nodes.empty() ? nullptr : nodes.data();
    uint32_t comprc = 0;
    const int sysrc = xlog_record(&request, &comprc);
    if (sysrc != 0) {
      char text[128];
      snprintf(text, sizeof text, "xlog_record of %s: sysrc %d, comprc 0x%X", name.c_str(), sysrc, comprc);
      give_up(text);
    }
    event.identity = identity_of(request.eventid, request.timestamp);
    note(ledger, event);
  }
  return 0;
}

std::map<Identity, Event> read_ledger(const std::string& ledger) {
  std::map<Identity, Event> events;
  for (const auto& entry : std::filesystem::directory_iterator(ledger)) {
    std::ifstream in(entry.path(), std::ios::binary);
    std::string line;
    std::getline(in, line);
    std::istringstream numbers(line);
    unsigned classes, type, user, seconds, hundredths;
    size_t blocks, size;
    Event event;
    if (!(numbers >> classes >> type >> user >> seconds >> hundredths >> blocks)) give_up("the ledger is damaged");
    event.identity = {classes, type, user, seconds, hundredths};
    while (blocks-- > 0 && numbers >> size) {
      std::string bytes(size, '\0');
      in.read(bytes.data(), static_cast<std::streamsize>(size));
      event.blocks.push_back(bytes);
    }
    events[event.identity] = event;
  }
  return events;
}

// The blocks that the recorder was given, without those that the library adds.
std::vector<std::string> caller_blocks(const xlog_log_entry& entry) {
  std::vector<std::string> blocks;
  for (const xlog_block_entry* block = entry.blocks; block; block = block->next)
    if (block->block_id >= kFirstBlockId && block->block_id < kFirstBlockId + 100)
      blocks.emplace_back(reinterpret_cast<const char*>(block->data), block->length);
  return blocks;
}

// One retrieval; its records are released with it.
class Retrieval {
 public:
  Retrieval() : block_(std::make_unique<xlog_retrieve_block>()) {}
  ~Retrieval() {
    uint32_t comprc;
    xlog_free(block_.get(), &comprc);
  }
  xlog_retrieve_block& block() { return *block_; }
  const xlog_log_entry* run() {
    uint32_t comprc = 0;
    const int sysrc = xlog_retrieve(block_.get(), &comprc);
    if (sysrc == 0) return block_->result;
    char text[64];
    snprintf(text, sizeof text, "xlog_retrieve: sysrc %d, comprc 0x%X", sysrc, comprc);
    give_up(text);
  }

 private:
  std::unique_ptr<xlog_retrieve_block> block_;
};

size_t compare(const std::map<Identity, Event>& expected, const xlog_log_entry* entry, const char* way) {
  size_t found = 0;
  for (; entry; entry = entry->next) {
    const auto match = expected.find(identity_of(entry->eventid, entry->timestamp));
    if (match == expected.end()) continue;
    if (caller_blocks(*entry) != match->second.blocks)
      give_up(std::string("an event read back by ") + way + " differs from what went in");
    ++found;
  }
  return found;
}

void expect(size_t found, size_t wanted, const char* way) {
  printf("  by %-8s %5zu events, every byte as it went in\n", way, found);
  if (found != wanted) give_up(std::string("by ") + way + ": expected " + std::to_string(wanted) + " events");
}

void verify_by_class(const std::map<Identity, Event>& events) {
  std::map<unsigned, std::map<Identity, Event>> classes;
  for (const auto& [identity, event] : events) classes[std::get<0>(identity)][identity] = event;
  size_t found = 0;
  for (const auto& [number, of_class] : classes) {
    Retrieval retrieval;
    retrieval.block().options = XLOG_OPT_ANY_EVENTID;
    retrieval.block().eventid.classes = static_cast<uint8_t>(number);
    found += compare(of_class, retrieval.run(), "class");
  }
  expect(found, events.size(), "class");
}

// The newer half.
void verify_by_time(const std::map<Identity, Event>& events) {
  using Stamp = std::pair<unsigned, unsigned>;
  const auto stamp_of = [](const Identity& identity) { return Stamp{std::get<3>(identity), std::get<4>(identity)}; };
  std::vector<Stamp> stamps;
  for (const auto& [identity, event] : events) stamps.push_back(stamp_of(identity));
  std::sort(stamps.begin(), stamps.end());
  const Stamp middle = stamps[stamps.size() / 2], last = stamps.back();
  std::map<Identity, Event> newer;
  for (const auto& entry : events)
    if (stamp_of(entry.first) >= middle) newer.insert(entry);
  Retrieval retrieval;
  retrieval.block().options = XLOG_OPT_ALL_CLASSES;
  retrieval.block().start = {middle.first, static_cast<uint8_t>(middle.second)};
  retrieval.block().end = {last.first, static_cast<uint8_t>(last.second)};
  const xlog_log_entry* found = retrieval.run();
  if (retrieval.block().count != newer.size()) give_up("the time range let other events through");
  expect(compare(newer, found, "time"), newer.size(), "time");
}

// Events whose first block begins like that of one real event.
void verify_by_pattern(const std::map<Identity, Event>& events) {
  std::string start;
  for (const auto& [identity, event] : events)
    if (start.empty() && !event.blocks.empty() && event.blocks[0].size() >= 8) start = event.blocks[0].substr(0, 8);
  std::map<Identity, Event> alike;
  for (const auto& entry : events)
    if (!entry.second.blocks.empty() && entry.second.blocks[0].compare(0, start.size(), start) == 0)
      alike.insert(entry);
  const std::string mask(start.size(), '\xFF');
  xlog_pattern pattern = {static_cast<uint32_t>(start.size()), kFirstBlockId,
                          reinterpret_cast<const uint8_t*>(start.data()), reinterpret_cast<const uint8_t*>(mask.data()),
                          nullptr};
  Retrieval retrieval;
  retrieval.block().options = XLOG_OPT_ALL_CLASSES;
  retrieval.block().patterns = &pattern;
  expect(compare(alike, retrieval.run(), "pattern"), alike.size(), "pattern");
}

int verify(const std::string& ledger, const std::string& log_file) {
  const auto events = read_ledger(ledger);
  if (events.empty()) give_up("the ledger is empty");
  const auto start = std::chrono::steady_clock::now();
  verify_by_class(events);
  verify_by_time(events);
  verify_by_pattern(events);
  const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
  size_t bytes = 0;
  for (const auto& [identity, event] : events)
    for (const auto& block : event.blocks) bytes += block.size();
  const auto stored = std::filesystem::file_size(log_file);
  printf("  %zu events, %zu bytes in, %ju bytes stored, ratio %.2f, read back three times in %.1f ms\n", events.size(),
         bytes, static_cast<uintmax_t>(stored), static_cast<double>(bytes) / static_cast<double>(stored), took.count());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string verb = argc > 1 ? argv[1] : "";
  if (verb == "record" && argc > 4)
    return record(argv[2], static_cast<unsigned>(strtoul(argv[3], nullptr, 0)), argv + 4, argc - 4);
  if (verb == "verify" && argc == 4) return verify(argv[2], argv[3]);
  fprintf(stderr, "usage: plovdemo record LEDGER CLASS FILE... | plovdemo verify LEDGER LOGFILE\n");
  return 2;
}
