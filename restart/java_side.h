// The orderly way: the Java side's shutdown manager, through the bridge.
#ifndef PLOV_RESTART_JAVA_SIDE_H
#define PLOV_RESTART_JAVA_SIDE_H

#include "restart/record.h"

namespace plov::restart {

// Asks the Java side; failures are in the record and in the log. False when the machine is still to be shut down.
bool ask_java(RestartRecord& record, const Request& request);

}  // namespace plov::restart

#endif
