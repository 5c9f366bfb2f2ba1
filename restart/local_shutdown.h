// The way that is always open: the system's own command.
#ifndef PLOV_RESTART_LOCAL_SHUTDOWN_H
#define PLOV_RESTART_LOCAL_SHUTDOWN_H

#include "restart/record.h"

namespace plov::restart {

// Runs "reboot", "halt" or "poweroff" by the shell. That it could not be run is in the record and in the log.
void local_shutdown(RestartRecord& record, const Request& request);

}  // namespace plov::restart

#endif
