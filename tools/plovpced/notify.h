// Tells the service manager that started us, where one asked for it, how far we are.
#ifndef PLOV_PCED_NOTIFY_H
#define PLOV_PCED_NOTIFY_H

namespace plov::pced {

void notify_manager(const char* state);  // "READY=1", "STOPPING=1"

}  // namespace plov::pced

#endif
