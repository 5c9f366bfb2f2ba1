// Events on the screen: a table line each, a hexdump of their blocks, or a JSON object each.
#ifndef PLOV_CTL_EVENT_PRINT_H
#define PLOV_CTL_EVENT_PRINT_H

#include "events.h"
#include "verbs.h"

namespace plov::ctl {

void print_table_head();
void print_crash_event(const Event& event, const Session& session, bool hexdump);  // the whole report, as text
void print_event(const Event& event, const Session& session, bool hexdump);

}  // namespace plov::ctl

#endif
