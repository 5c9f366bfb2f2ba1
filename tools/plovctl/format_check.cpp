#include "format_check.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "hex.h"

namespace plov::ctl {
namespace {

constexpr uint16_t kKnownFileFlags =
    XLOG_FILE_PRUNE_IN_PROGRESS | XLOG_FILE_UTC_OFFSET | XLOG_VERSION_CONTROL_FLAG | XLOG_FILE_SINGLE_STAGE;
constexpr uint16_t kKnownLogFlags = XLOG_LOG_PROBLEM_ANALYSIS | XLOG_LOG_ENCODED_HINT | XLOG_LOG_STORED_FORM |
                                    XLOG_LOG_DISPLAY_AS_ERROR | XLOG_LOG_PRIORITY_MASK;
constexpr uint32_t kMaxStoredBlock = XLOG_MAX_BLOCK_SIZE + 1;  // with the mark of a plain block

constexpr size_t kEncodedHeaderSize = 12;
constexpr uint8_t kEncodedStart[4] = {0x05, 0x01, 0x04, 0x00};

std::string number(uint64_t value) {
  return std::to_string(value) + " (" + hex(value, 1) + ")";
}

class Checker {
 public:
  Checker(Bytes file, const Expander& expand) : file_(file), expand_(expand) {}

  CheckResult run() {
    check_file();
    std::stable_sort(result_.findings.begin(), result_.findings.end(),
                     [](const Finding& a, const Finding& b) { return a.offset < b.offset; });
    return std::move(result_);
  }

 private:
  void check_file() {
    const std::optional<xlog_file_header> header = load_file_header(file_);
    if (!header) return damage(file_.size(), "file header", std::to_string(file_.size()) + " bytes", "1040 bytes");
    header_ = *header;
    if (!check_file_header()) return;
    layout_ = lay_out(file_, header_);
    check_logs();
    check_newest();
    if (file_.size() > header_.file_size)
      note(header_.file_size, "bytes beyond file_size", std::to_string(file_.size() - header_.file_size),
           "0; the next log overwrites them");
  }

  void add(bool is_note, uint64_t offset, std::string field, std::string found, std::string expected) {
    if (!is_note) ++result_.damage_count;
    if (result_.findings.size() < kMaxFindings)
      result_.findings.push_back({is_note, offset, std::move(field), std::move(found), std::move(expected)});
  }
  void damage(uint64_t offset, std::string field, std::string found, std::string expected) {
    add(false, offset, std::move(field), std::move(found), std::move(expected));
  }
  void note(uint64_t offset, std::string field, std::string found, std::string expected) {
    add(true, offset, std::move(field), std::move(found), std::move(expected));
  }

  // False when the rest of the file cannot be judged by this header.
  bool check_file_header() {
    if (header_.file_flags & ~kKnownFileFlags)
      damage(offsetof(xlog_file_header, file_flags), "file_flags", hex(header_.file_flags, 4),
             "no bits but " + hex(kKnownFileFlags, 4));
    if (header_.file_flags & XLOG_FILE_PRUNE_IN_PROGRESS) {
      damage(offsetof(xlog_file_header, file_flags), "file_flags", hex(header_.file_flags, 4),
             "bit 0x0010 clear: a prune was interrupted, the next open of the log finishes it; the rest is not judged");
      return false;
    }
    if (header_.file_size < XLOG_FILE_HEADER_SIZE) {
      damage(offsetof(xlog_file_header, file_size), "file_size", number(header_.file_size), "at least 1040 (0x410)");
      return false;
    }
    if (header_.file_size > file_.size())
      damage(offsetof(xlog_file_header, file_size), "file_size", number(header_.file_size),
             "at most " + number(file_.size()) + ", where the file ends");
    // The compressed copies are given another limit after they were copied, so this is no damage.
    if (header_.file_size > header_.max_file_size * uint64_t{XLOG_SIZE_UNIT})
      note(offsetof(xlog_file_header, max_file_size), "max_file_size",
           std::to_string(header_.max_file_size) + " units, below file_size " + number(header_.file_size),
           "enough for file_size; usual in a compressed copy");
    return true;
  }

  void check_logs() {
    size_t gap = 0;
    for (uint32_t offset : layout_.logs) {
      for (; gap < layout_.gaps.size() && layout_.gaps[gap].begin < offset; ++gap) complain(layout_.gaps[gap]);
      check_log(offset);
    }
    for (; gap < layout_.gaps.size(); ++gap) complain(layout_.gaps[gap]);
  }

  void complain(const Gap& gap) {
    const std::string behind = gap.end < layout_.end ? "; reading goes on at offset " + std::to_string(gap.end) : "";
    const LoadedLog log = load_log(file_, gap.begin, layout_.end);
    switch (gap.flaw) {
      case Flaw::header_cut:
        return damage(gap.begin, "log header", std::to_string(layout_.end - gap.begin) + " bytes",
                      std::to_string(std::max<uint32_t>(37, log.header_size())) + " bytes" + behind);
      case Flaw::too_many_blocks:
        return damage(gap.begin, "num_blocks", number(gap.found.num_blocks), "at most 256" + behind);
      case Flaw::size_below_header:
        return damage(gap.begin, "total_log_size", number(gap.found.total_log_size),
                      "at least " + std::to_string(log.header_size()) + ", its header" + behind);
      default:
        return damage(gap.begin, "total_log_size", number(gap.found.total_log_size),
                      "at most " + std::to_string(layout_.end - gap.begin) + ", where the data end" + behind);
    }
  }

  void check_log(uint32_t offset) {
    const LoadedLog log = load_log(file_, offset, layout_.end);
    const xlog_log_info& info = log.info;
    ++result_.logs;
    if (info.log_flags == XLOG_LOG_DELETED)
      ++result_.deleted_logs;
    else if (info.log_flags & ~kKnownLogFlags)
      damage(offset, "log_flags", hex(info.log_flags, 4), "no bits but " + hex(kKnownLogFlags, 4) + ", or 0xFFFF");
    if (info.timestamp.hundredths > 99)
      damage(offset, "timestamp.hundredths", std::to_string(info.timestamp.hundredths), "at most 99");
    if (offset == XLOG_FILE_HEADER_SIZE && !(header_.file_flags & XLOG_FILE_SINGLE_STAGE)) check_first(info);

    // Each block that the encoder cannot shorten grows by its mark, after the recorder has tested the limit.
    const uint64_t limit = std::max<uint64_t>(1, header_.max_single_log_size) * XLOG_SIZE_UNIT + info.num_blocks;
    if (info.total_log_size > limit)
      damage(offset, "total_log_size", number(info.total_log_size),
             "at most " + number(header_.max_single_log_size * uint64_t{XLOG_SIZE_UNIT}) + ", max_single_log_size");

    check_link(offset, "prev_log_offset", info.prev_log_offset, last_log_);
    last_log_ = offset;
    uint32_t& last_of_class = last_of_class_[info.eventid.classes];
    check_link(offset, "prev_class_log_offset", info.prev_class_log_offset, last_of_class);
    last_of_class = offset;

    check_blocks(offset, log);
  }

  void check_first(const xlog_log_info& info) {
    const bool log_info_log = info.eventid.classes == 0xFF && info.eventid.log_type == 0xFF &&
                              memcmp(info.event_name, XLOG_LOG_INFO_NAME, XLOG_NAME_SIZE) == 0;
    // A purge of class 255 takes the Log Info Log away and leaves its notice in the place.
    const bool notice = info.eventid.classes == 0xFF && memcmp(info.event_name, "pruned logs", XLOG_NAME_SIZE) == 0;
    if (!log_info_log && !notice)
      damage(XLOG_FILE_HEADER_SIZE, "eventid",
             "class " + hex(info.eventid.classes, 2) + " type " + hex(info.eventid.log_type, 2),
             "the Log Info Log, class 0xFF type 0xFF");
  }

  // `expected` is the log before this one in its chain, as far as it could be read. Through a gap the true one is
  // unknown: a link into the gap is taken for right.
  void check_link(uint64_t place, std::string field, uint32_t found, uint32_t expected) {
    if (found == expected || in_gap(found)) return;
    std::string text = expected == 0 ? "0, no log" : number(expected);
    if (found >= place && place >= XLOG_FILE_HEADER_SIZE) text += "; a link points below its own log";
    damage(place, std::move(field), number(found), std::move(text));
  }

  bool in_gap(uint32_t offset) const {
    const auto after = std::upper_bound(layout_.gaps.begin(), layout_.gaps.end(), offset,
                                        [](uint32_t value, const Gap& gap) { return value < gap.begin; });
    return after != layout_.gaps.begin() && offset < std::prev(after)->end;
  }

  void check_blocks(uint32_t offset, const LoadedLog& log) {
    const uint32_t log_end = offset + log.info.total_log_size;
    uint64_t sum = log.header_size();
    for (uint32_t i = 0; i < log.info.num_blocks; ++i) {
      const xlog_block_info entry = load_block_info(file_, offset, i);
      if (offset + sum + entry.block_size <= log_end) check_block(offset, i, entry, offset + sum, log.info.log_flags);
      sum += entry.block_size;
      ++result_.blocks;
    }
    if (sum != log.info.total_log_size)
      damage(offset, "total_log_size", number(log.info.total_log_size),
             number(sum) + ", its header and the sum of its blocks");
  }

  void check_block(uint32_t log_offset, uint32_t index, const xlog_block_info& entry, uint64_t data, uint16_t flags) {
    const auto name = [&] {
      return "block " + std::to_string(index + 1) + " (id " + hex(entry.block_id, 2) + ", data at offset " +
             std::to_string(data) + ")";
    };
    // A deleted log has lost the flag that told how its blocks are stored.
    if (flags == XLOG_LOG_DELETED) return;
    const bool raw = !(flags & XLOG_LOG_STORED_FORM) || entry.block_id == XLOG_MODIFY_BLOCK_ID;
    const uint32_t limit = raw ? XLOG_MAX_BLOCK_SIZE : kMaxStoredBlock;
    if (entry.block_size > limit) {
      damage(log_offset, name() + " block_size", number(entry.block_size), "at most " + number(limit));
      return;
    }
    if (raw || entry.block_size == 0) return;
    const Bytes stored = file_.subspan(data, entry.block_size);
    if (stored[0] == XLOG_STORED_MARK) return;
    if (stored.size() < kEncodedHeaderSize || memcmp(stored.data(), kEncodedStart, sizeof kEncodedStart) != 0) {
      std::string begin;
      for (uint8_t byte : stored.first(std::min<size_t>(4, stored.size()))) begin += hex(byte, 2).substr(2) + " ";
      begin.back() = ',';
      damage(log_offset, name(), begin + " " + std::to_string(stored.size()) + " bytes",
             "FF and plain bytes, or 05 01 04 00 and an encoded block of at least 12 bytes");
      return;
    }
    const std::optional<uint32_t> length = expand_(stored);
    if (!length)
      damage(log_offset, name(), "codes that cannot be expanded", "an encoded block");
    else if (*length > XLOG_MAX_BLOCK_SIZE)
      damage(log_offset, name(), std::to_string(*length) + " bytes when expanded", "at most 65280");
  }

  // The chains' beginnings. When the last stretch is a gap, what they should name is unknown.
  void check_newest() {
    check_link(offsetof(xlog_file_header, last_log_offset), "last_log_offset", header_.last_log_offset, last_log_);
    for (uint32_t c = 0; c < 256; ++c) {
      uint32_t found;
      const size_t place = offsetof(xlog_file_header, class_last_log) + c * sizeof found;
      memcpy(&found, file_.data() + place, sizeof found);
      check_link(place, "class_last_log[" + hex(c, 2) + "]", found, last_of_class_[c]);
    }
  }

  Bytes file_;
  const Expander& expand_;
  xlog_file_header header_{};
  LogLayout layout_;
  CheckResult result_;
  uint32_t last_log_ = 0;
  std::array<uint32_t, 256> last_of_class_{};
};

}  // namespace

std::string to_text(const Finding& finding) {
  return (finding.note ? "note: offset " : "offset ") + std::to_string(finding.offset) + ", " + finding.field +
         ": found " + finding.found + ", expected " + finding.expected;
}

CheckResult check_format(Bytes file, const Expander& expand) {
  return Checker(file, expand).run();
}

}  // namespace plov::ctl
