#include "blocks.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "codes.h"
#include "escape.h"
#include "xlog_format.h"

namespace plov::ctl {
namespace {

template <typename Value>
Value load(Bytes data, size_t offset) {
  Value value;
  memcpy(&value, data.data() + offset, sizeof value);
  return value;
}

Field number_field(const char* name, uint32_t number) {
  return {name, std::to_string(number), number};
}

Fields standard_fields(Bytes data) {
  const std::optional<Recorder> recorder = decode_standard_block(data);
  if (!recorder) return {};
  return {{"process", recorder->name, {}},
          number_field("process_id", recorder->process_id),
          number_field("parent_process_id", recorder->parent_process_id),
          number_field("thread_id", recorder->thread_id)};
}

// Expanded, the block has lost its mark.
Fields utc_fields(Bytes data) {
  if (data.size() != sizeof(xlog_utc_block) - 1) return {};
  const int minutes = load<int16_t>(data, 2);
  char text[16];
  snprintf(text, sizeof text, "UTC%c%02d:%02d", minutes < 0 ? '-' : '+', abs(minutes) / 60, abs(minutes) % 60);
  return {{"recorded_at", text, {}}};
}

Fields error_fields(Bytes data) {
  if (data.size() != 6) return {};
  const uint16_t id = load<uint16_t>(data, 0);
  std::string text = hex(id, 4);
  if (const auto codes = find_codes(Family::xlog, id); !codes.empty()) text += std::string(" ") + codes[0]->meaning;
  return {{"error_id", text, id}, number_field("reason", load<uint32_t>(data, 2))};
}

Fields count_fields(Bytes data) {
  if (data.size() != sizeof(uint32_t)) return {};
  return {number_field("variables", load<uint32_t>(data, 0))};
}

// Length of the text (most significant byte first), the text, a zero byte, number of digits, the digits.
Fields tower_fields(Bytes data) {
  if (data.size() < 4) return {};
  const size_t length = static_cast<size_t>(data[0] << 8 | data[1]);
  if (data.size() < length + 4 || data[2 + length] != 0 || data.size() != length + 4 + data[3 + length]) return {};
  const std::string text(data.begin() + 2, data.end());
  return {{"text", text.substr(0, length), {}}, {"number", text.substr(length + 2), {}}};
}

bool is_backtrace(uint8_t id) {
  return id >= XLOG_BACKTRACE_BLOCK_ID && id <= XLOG_LAST_BACKTRACE_BLOCK_ID;
}

}  // namespace

const char* block_name(uint8_t id) {
  switch (id) {
    case XLOG_MODIFY_BLOCK_ID:
      return "modify";
    case XLOG_STANDARD_BLOCK_ID:
      return "standard";
    case XLOG_LOG_INFO_BLOCK_ID:
      return "log information";
    case XLOG_EXTRA_DATA_BLOCK_ID:
      return "extra data";
    case XLOG_FILE_LIST_BLOCK_ID:
      return "file names";
    case XLOG_THREAD_TRACE_BLOCK_ID:
      return "trace of the thread";
    case XLOG_PROCESS_TRACE_BLOCK_ID:
      return "trace of the process";
    case XLOG_TRACE_BLOCK_ID:
      return "trace";
    case XLOG_ERROR_BLOCK_ID:
      return "error";
    case XLOG_SYSTEM_EVENT_BLOCK_ID:
      return "system event";
    case XLOG_REFCODE_BLOCK_ID:
      return "reference code";
    case XLOG_TOWER_BLOCK_ID:
      return "tower";
    case XLOG_RESERVED_F4_BLOCK_ID:
      return "reserved";
    case XLOG_UTCOFFSET_BLOCK_ID:
      return "UTC offset";
    default:
      return is_backtrace(id) ? "backtrace" : "";
  }
}

Fields decode_block(uint8_t id, Bytes data) {
  switch (id) {
    case XLOG_STANDARD_BLOCK_ID:
      return standard_fields(data);
    case XLOG_ERROR_BLOCK_ID:
      return error_fields(data);
    case XLOG_SYSTEM_EVENT_BLOCK_ID:
      return count_fields(data);
    case XLOG_TOWER_BLOCK_ID:
      return tower_fields(data);
    case XLOG_UTCOFFSET_BLOCK_ID:
      return utc_fields(data);
    default:
      return {};
  }
}

std::optional<ReferenceCode> reference_code(uint8_t classes, uint8_t type, Bytes error_block) {
  if (error_block.size() != sizeof(xlog_error_block)) return std::nullopt;
  const auto error = load<xlog_error_block>(error_block, 0);
  // With the letters' case as the library traces it.
  char code[9], extension[9];
  snprintf(code, sizeof code, "%02X%02x%04x", classes, type, error.error_id);
  snprintf(extension, sizeof extension, "%x", error.error_reason);
  return ReferenceCode{code, extension};
}

std::optional<std::string_view> block_text(uint8_t id, Bytes data) {
  // An error log keeps its trace under the id of the log information; that one's bytes begin with a number.
  const bool text = is_backtrace(id) || (id >= XLOG_THREAD_TRACE_BLOCK_ID && id <= XLOG_TRACE_BLOCK_ID) ||
                    id == XLOG_FILE_LIST_BLOCK_ID || id == XLOG_LOG_INFO_BLOCK_ID;
  const auto* const begin = reinterpret_cast<const char*>(data.data());
  const std::string_view trimmed = trim_field(begin, data.size());
  if (!text || trimmed.empty() || !is_utf8(trimmed) || trimmed.find('\0') != trimmed.npos) return std::nullopt;
  return trimmed;
}

std::optional<Recorder> decode_standard_block(Bytes data) {
  if (data.size() == sizeof(xlog_standard_block))
    data = data.subspan(offsetof(xlog_standard_block, process));
  else if (data.size() != sizeof(xlog_L00F02B00V01))
    return std::nullopt;
  const auto process = load<xlog_L00F02B00V01>(data, 0);
  return Recorder{std::string(trim_field(process.process_name, strnlen(process.process_name, XLOG_PROCESS_NAME_SIZE))),
                  process.process_id, process.parent_process_id, process.thread_id};
}

}  // namespace plov::ctl
