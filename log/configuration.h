// "wexoinit.trm": seven numbers, then class and type lines. Parsing apart from reading.
#ifndef PLOV_LOG_CONFIGURATION_H
#define PLOV_LOG_CONFIGURATION_H

#include <stddef.h>
#include <stdint.h>

#include "xlog.h"

namespace plov::log {

// Parses the seven numbers and, when `want_classes`, the class list, whose records come from the debug allocator and
// are the caller's. Returns 0, or XLOG_ERR_CONFIG_CLASS_MEMORY / _TYPE_MEMORY of the last record that got no memory;
// parsing goes on without it.
uint16_t parse_configuration(const char* text, size_t length, bool want_classes, xlog_configuration* configuration);

// Reads and parses the file without calling the error handler: for steps inside an operation, which calls it at its own
// end.
int32_t read_configuration(xlog_err_interface* err, bool want_classes, xlog_configuration* configuration);

}  // namespace plov::log

#endif
