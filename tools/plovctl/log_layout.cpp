#include "log_layout.h"

#include <algorithm>
#include <cstring>

namespace plov::ctl {
namespace {

constexpr uint32_t kLogInfoSize = sizeof(xlog_log_info);

uint32_t addressable(Bytes file) {
  return static_cast<uint32_t>(std::min<uint64_t>(file.size(), UINT32_MAX));
}

// The logs that the chain from the newest one reaches, rising. A step back by less than a log header ends the chain, so
// it has at most one step for each 37 bytes.
std::vector<uint32_t> chained_logs(Bytes file, const xlog_file_header& header, uint32_t end) {
  std::vector<uint32_t> offsets;
  uint64_t offset = header.last_log_offset;
  while (offset >= XLOG_FILE_HEADER_SIZE) {
    const LoadedLog log = load_log(file, offset, end);
    if (log.flaw != Flaw::none) break;
    offsets.push_back(static_cast<uint32_t>(offset));
    const uint64_t previous = log.info.prev_log_offset;
    if (previous + kLogInfoSize > offset) break;
    offset = previous;
  }
  std::reverse(offsets.begin(), offsets.end());
  return offsets;
}

// While room is made the header says that the file is empty, but for its newest log: the logs are all there still.
uint32_t end_of_data(Bytes file, const xlog_file_header& header) {
  if (!(header.file_flags & XLOG_FILE_PRUNE_IN_PROGRESS))
    return std::min(uint32_t{header.file_size}, addressable(file));
  const LoadedLog newest = load_log(file, header.last_log_offset, addressable(file));
  return newest.flaw == Flaw::none ? header.last_log_offset + newest.info.total_log_size : addressable(file);
}

}  // namespace

std::optional<xlog_file_header> load_file_header(Bytes file) {
  xlog_file_header header;
  if (file.size() < sizeof header) return std::nullopt;
  memcpy(&header, file.data(), sizeof header);
  return header;
}

LoadedLog load_log(Bytes file, uint64_t offset, uint32_t end) {
  LoadedLog log;
  end = std::min(end, addressable(file));
  if (offset > end || end - offset < kLogInfoSize) return log;
  memcpy(&log.info, file.data() + offset, kLogInfoSize);
  if (log.info.num_blocks > XLOG_MAX_BLOCKS) {
    log.flaw = Flaw::too_many_blocks;
  } else if (end - offset < log.header_size()) {
    log.flaw = Flaw::header_cut;
  } else if (log.info.total_log_size < log.header_size()) {
    log.flaw = Flaw::size_below_header;
  } else if (log.info.total_log_size > end - offset) {
    log.flaw = Flaw::size_beyond_end;
  } else {
    log.flaw = Flaw::none;
  }
  return log;
}

xlog_block_info load_block_info(Bytes file, uint32_t log_offset, uint32_t index) {
  xlog_block_info entry;
  memcpy(&entry, file.data() + log_offset + kLogInfoSize + index * sizeof entry, sizeof entry);
  return entry;
}

LogLayout lay_out(Bytes file, const xlog_file_header& header) {
  LogLayout layout;
  layout.end = end_of_data(file, header);
  uint32_t offset = XLOG_FILE_HEADER_SIZE;
  std::optional<std::vector<uint32_t>> chained;
  while (offset < layout.end) {
    const LoadedLog log = load_log(file, offset, layout.end);
    if (log.flaw == Flaw::none) {
      layout.logs.push_back(offset);
      offset += log.info.total_log_size;
      continue;
    }
    if (!chained) chained = chained_logs(file, header, layout.end);
    const auto next = std::upper_bound(chained->begin(), chained->end(), offset);
    const uint32_t gap_end = next == chained->end() ? layout.end : *next;
    layout.gaps.push_back({offset, gap_end, log.flaw, log.info});
    offset = gap_end;
  }
  return layout;
}

}  // namespace plov::ctl
