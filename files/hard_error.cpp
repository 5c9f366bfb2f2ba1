#include "files/hard_error.h"

#include <errno.h>
#include <string.h>

#include "frame/call.h"
#include "frame/deferred.h"
#include "frame/recording.h"
#include "xlog.h"
#include "xtr.h"

namespace plov::files {
namespace {

// Of the system's own entries: class, user code, and a type for each kind of device.
constexpr uint8_t kClass = 13;
constexpr uint16_t kUser = 1;
constexpr uint8_t kTypeFixed = 10;
constexpr uint8_t kTypeRemovable = 11;
constexpr char kRemovableMount[] = "/mnt/floppy/";
constexpr char kEventName[] = "DFC Hard Err";
static_assert(sizeof kEventName - 1 == XLOG_NAME_SIZE);

bool device_failed(uint32_t error) {
  return error == EIO || error == ENXIO || error == EBUSY || error == ENODEV;
}

// Values: error id, errno, type of the entry.
void record(const frame::Deferred& failure) {
  const uint16_t block[3] = {static_cast<uint16_t>(failure.values[0]), static_cast<uint16_t>(failure.values[1]), 0};
  xlog_data_node node = {};
  node.data_size = sizeof block;
  node.block_id = XLOG_ERROR_BLOCK_ID;
  node.data_ptr = block;
  xlog_log_request request = {};
  request.flags = XLOG_STANDARD_LOG_FLAG | XLOG_PROBLEM_ANALYSIS_FLAG;
  request.eventid.classes = kClass;
  request.eventid.log_type = static_cast<uint8_t>(failure.values[2]);
  request.eventid.user = kUser;
  memcpy(request.event_name, kEventName, sizeof request.event_name);
  request.data = &node;
  uint32_t comprc = 0;
  const frame::Recording recording;
  xlog_record(&request, &comprc);
}

}  // namespace

uint32_t xdfc_hard_err(int32_t error_id, uint32_t comprc_value, const char* path) {
  xtr_trace("XDFCHE D: -> xdfc_hard_err");
  const bool hard = device_failed(comprc_value);
  if (hard) {
    const bool removable = strncmp(path, kRemovableMount, sizeof kRemovableMount - 1) == 0;
    if (!frame::Recording::active())
      frame::record_or_defer(
          {record, {error_id, static_cast<int32_t>(comprc_value), removable ? kTypeRemovable : kTypeFixed, 0}});
    xtr_trace("XDFCHE F: HARDWARE ERROR! uErrorID=%d, ulComprc=%ld", error_id, static_cast<long>(comprc_value));
  }
  xtr_trace("XDFCHE D: <- xdfc_hard_err");
  return hard ? frame::kSystemFailure : frame::kRefused;
}

}  // namespace plov::files
