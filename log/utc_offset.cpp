#include "log/utc_offset.h"

#include <time.h>

namespace plov::log {

xlog_utc_block utc_block(uint32_t seconds) {
  const time_t when = seconds;
  struct tm local;
  xlog_utc_block block = {};
  block.mark = XLOG_STORED_MARK;
  if (localtime_r(&when, &local)) block.offset_minutes = static_cast<int16_t>(local.tm_gmtoff / 60);
  return block;
}

}  // namespace plov::log
