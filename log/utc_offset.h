// The UTC offset block: how far local time is east of UTC at a log's own time.
#ifndef PLOV_LOG_UTC_OFFSET_H
#define PLOV_LOG_UTC_OFFSET_H

#include "xlog_format.h"

namespace plov::log {

// As stored. The offset is 0 when the local time cannot be computed.
xlog_utc_block utc_block(uint32_t seconds);

}  // namespace plov::log

#endif
