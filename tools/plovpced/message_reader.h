// What a peer sends, put together from a stream of bytes that may be cut anywhere. No I/O, and no more memory than the
// one message that it says is coming.
#ifndef PLOV_PCED_MESSAGE_READER_H
#define PLOV_PCED_MESSAGE_READER_H

#include <cstdint>
#include <span>

#include "pce_wire.h"
#include "report_pool.h"

namespace plov::pced {

// The daemon's own: what `plovpced --table` asks, the header alone. Answered with the header and a JSON text.
inline constexpr uint32_t kTableRequest = 0x5F0;

class MessageReader {
 public:
  enum class State {
    reading,
    needs_memory,  // a report is coming: give_memory()
    complete,      // look at it, then next()
    garbage        // no message begins so: for good
  };
  State state() const { return state_; }

  // Where the next bytes go, and that so many of them have come. Empty unless reading.
  std::span<uint8_t> room();
  void advance(size_t count);

  void give_memory(ReportPtr memory);
  void next();

  bool begun() const { return filled_ > 0 && state_ != State::complete; }
  const pce_wire_header& header() const { return small_.header; }
  const pce_wire_register& registration() const { return small_; }

  ReportPtr take_report();  // of a complete one

  // What came of a report whose sender died, when at least its text did; the areas that did not come are empty.
  ReportPtr take_cut_report();

 private:
  pce_wire_register small_ = {};  // every message but a report; a report's header
  ReportPtr report_;
  uint32_t filled_ = 0;
  State state_ = State::reading;
};

}  // namespace plov::pced

#endif
