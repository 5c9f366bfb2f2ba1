#include "log/maintain/retention.h"

#include <algorithm>

namespace plov::log {

Retention retention_of(uint8_t event_class, const xlog_configuration& configuration) {
  const auto rule = [](uint16_t keep, uint16_t priority) {
    return Retention::Rule{keep, std::min(priority, kHighestPriority)};
  };
  Retention retention;
  const xlog_class_record* found = configuration.class_list;
  while (found && found->classes != event_class) found = found->next;
  std::fill_n(retention.types, 256,
              found ? rule(found->first, found->second) : rule(configuration.default_keep_count, 0));
  if (!found) return retention;
  for (const xlog_type_record* type = found->types; type; type = type->next)
    if (type->type < 256) retention.types[type->type] = rule(type->first, type->second);
  return retention;
}

}  // namespace plov::log
