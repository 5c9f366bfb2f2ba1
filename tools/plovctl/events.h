// Events read from a log file: selected and fetched through the library, or salvaged from the bytes of a damaged file.
#ifndef PLOV_CTL_EVENTS_H
#define PLOV_CTL_EVENTS_H

#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hex.h"
#include "log_source.h"
#include "times.h"
#include "xlog.h"

namespace plov::ctl {

struct Block {
  uint8_t id;
  Bytes data;
};

struct Event {
  xlog_eventid id{};
  Stamp stamp;
  std::string name;  // 12 bytes, as recorded
  uint16_t flags = 0;
  std::vector<Block> blocks;  // in the log's order

  bool same_as(const Event& other) const;  // identity, stamp and name
};

struct Pattern {
  uint8_t block_id;
  std::vector<uint8_t> data;
  std::vector<uint8_t> mask;
};

// Empty members select everything.
struct Selection {
  std::vector<uint8_t> classes, types;
  std::vector<uint16_t> users;
  std::string name;  // shell pattern on the trimmed name
  std::optional<Stamp> since, until;
  std::string grep;                  // bytes in any block
  std::vector<Pattern> patterns;     // every one in some block
  std::vector<uint8_t> kept_blocks;  // ids of the blocks to keep; the others are dropped, not the event

  bool matches(const Event& event) const;
  void drop_blocks(Event& event) const;
  // True when the library's own selection leaves nothing to this class.
  bool library_decides() const;
};

// Newest first. The events point into memory that the list holds.
class EventList {
 public:
  std::vector<Event> events;

  // What the library selects, not yet tested by `matches`; at most `maximum`, 0 for all.
  static EventList fetch(const LogName& log, const Selection& selection, uint32_t maximum);
  // Every readable log of a file, whatever the state of its links.
  static EventList salvage(Bytes file);
  // Every log of the file and, behind each "logcomp" event, what the compressed copy holds that was made then.
  static EventList fetch_with_copies(const LogName& log);

  void apply(const Selection& selection, size_t maximum);  // keeps the newest `maximum` matches, 0 for all

 private:
  void add_logs(Bytes file, uint32_t above);  // those behind this offset, newest first

  struct Release {
    void operator()(xlog_retrieve_block* block) const;
  };
  std::unique_ptr<xlog_retrieve_block, Release> retrieved_;
  std::list<std::vector<uint8_t>> expanded_, files_;
};

}  // namespace plov::ctl

#endif
