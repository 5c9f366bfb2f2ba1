// Pieces of a field: their list, and reading and writing by it. The result of both calls is 0 once the map is there;
// their callers test comprc.
#include <string.h>

#include <algorithm>

#include "frame/call.h"
#include "sim/field.h"
#include "sim/own_bytes.h"
#include "xsim.h"
#include "xtr.h"

namespace plov::sim {
namespace {

struct Piece {
  uint32_t offset, length;
};

// Our copy of a caller's list.
class Pieces {
 public:
  uint32_t take(const uint32_t* list) {
    uint32_t count = 0;
    if (!frame::take_from_caller(&count, list, sizeof count, frame::Access::read)) return XSIM_BAD_POINTER;
    const uint64_t size = uint64_t{count} * sizeof(Piece);
    if (size > SIZE_MAX - sizeof count) return XSIM_BAD_POINTER;
    if (const uint32_t code = list_.take(list + 1, static_cast<size_t>(size)); code != 0) return code;
    uint64_t total = 0;
    for (uint32_t i = 0; i < count; ++i) total += piece(i).length;
    if (total > SIZE_MAX) return XSIM_BAD_POINTER;
    count_ = count;
    total_ = static_cast<size_t>(total);
    return 0;
  }

  size_t total() const { return total_; }

  // Nothing is asked of a piece but that it stays in the data area: some callers reach into the neighbouring field.
  bool in_area(const Field& field) const {
    for (uint32_t i = 0; i < count_; ++i)
      if (!field.in_area(piece(i).offset, piece(i).length)) return false;
    return true;
  }

  // Each piece with its place in the packed bytes.
  template <class Visit>
  void each(Visit visit) const {
    size_t at = 0;
    for (uint32_t i = 0; i < count_; at += piece(i).length, ++i) visit(piece(i), at);
  }

 private:
  Piece piece(uint32_t i) const {
    Piece piece;
    memcpy(&piece, list_.data() + i * sizeof piece, sizeof piece);
    return piece;
  }

  OwnBytes list_;
  uint32_t count_ = 0;
  size_t total_ = 0;
};

uint32_t read_pieces(uint32_t id, void* buffer, const uint32_t* list) {
  Pieces pieces;
  OwnBytes packed;
  uint32_t code;
  {
    Field field(id);
    if ((code = field.find()) != 0) return code;
    if ((code = pieces.take(list)) != 0) return code;
    if ((code = packed.prepare(buffer, pieces.total())) != 0) return code;
    if ((code = field.take()) != 0) return code;
    if (!field.initialized()) {
      xtr_trace("XSIM   F:Requested SIM field has not been initialized");
      return XSIM_NOT_INITIALIZED;
    }
    if (!pieces.in_area(field)) return XSIM_NOT_INITIALIZED;
    pieces.each(
        [&](Piece piece, size_t at) { memcpy(packed.data() + at, field.value() + piece.offset, piece.length); });
    if (field.locked()) {
      xtr_trace("XSIM   F:Requested SIM field is locked");
      code = XSIM_FIELD_LOCKED;
    }
  }
  return packed.give(buffer) ? code : XSIM_BAD_POINTER;
}

// What of a piece lies behind the field's end is the neighbour's, whose place in the permanent file is another one.
void write_piece(Field& field, Piece piece, const uint8_t* bytes) {
  uint8_t* const value = field.value() + piece.offset;
  const bool write_through = field.persistent() && memcmp(value, bytes, piece.length) != 0;
  memcpy(value, bytes, piece.length);
  if (!write_through || piece.offset >= field.size()) return;
  field.xsim_internal_file_write(bytes, piece.offset, std::min(piece.length, field.size() - piece.offset));
  field.close_permanent();
}

uint32_t write_pieces(uint32_t id, const void* data, const uint32_t* list, bool override_lock) {
  Pieces pieces;
  OwnBytes packed;
  Field field(id);
  uint32_t code;
  if ((code = field.find()) != 0) return code;
  if ((code = pieces.take(list)) != 0) return code;
  if ((code = packed.take(data, pieces.total())) != 0) return code;
  if ((code = field.take()) != 0) return code;
  if (!field.initialized()) return XSIM_NOT_INITIALIZED;
  if (!override_lock && field.locked()) return XSIM_FIELD_LOCKED;
  if (!pieces.in_area(field)) return XSIM_NOT_INITIALIZED;
  pieces.each([&](Piece piece, size_t at) { write_piece(field, piece, packed.data() + at); });
  // Whatever a piece's file write came to, the call ends with 0: its callers take any other code for "nothing written"
  // and repeat. Do not repair.
  field.clear_lock();
  return 0;
}

}  // namespace
}  // namespace plov::sim

int32_t xsim_sub_read(uint32_t id, void* buffer, const uint32_t* pieces, uint32_t* comprc) {
  using namespace plov::sim;
  plov::frame::Call call("xsim_sub_read", "XSIM   T: -> xsim_sub_read", "XSIM   T: <- xsim_sub_read", comprc);
  if (call.ok()) {
    xtr_trace("XSIMSSRF: SIM ID=%d", id);
    if (map_ready(call)) call.set_comprc(read_pieces(id, buffer, pieces));
  }
  return call.leave();
}

int32_t xsim_sub_write(uint32_t id, const void* data, const uint32_t* pieces, uint32_t override_lock,
                       uint32_t* comprc) {
  using namespace plov::sim;
  plov::frame::Call call("xsim_sub_write", "XSIM   T: -> xsim_sub_write", "XSIM   T: <- xsim_sub_write", comprc);
  if (call.ok()) {
    xtr_trace("XSIMSSWF: SIM ID=%d", id);
    if (map_ready(call)) call.set_comprc(write_pieces(id, data, pieces, override_lock != 0));
  }
  return call.leave();
}
