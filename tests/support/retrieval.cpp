#include "support/retrieval.h"

#include <stdio.h>

namespace test {

Retrieval::Retrieval(uint16_t wanted_options, xlog_eventid wanted, const char* file) : xlog_retrieve_block{} {
  options = wanted_options;
  eventid = wanted;
  snprintf(target_session, sizeof target_session, "%s", file);
}

std::vector<std::string> Retrieval::logs() const {
  std::vector<std::string> all;
  for (const xlog_log_entry* entry = result; entry; entry = entry->next) {
    std::string text = std::to_string(entry->eventid.user);
    char separator = ':';
    for (const xlog_block_entry* block = entry->blocks; block; block = block->next, separator = ',') {
      text += separator + std::to_string(block->block_id) + '=';
      if (block->length) text.append(reinterpret_cast<const char*>(block->data), block->length);
    }
    all.push_back(text);
  }
  return all;
}

std::vector<std::string> users(uint16_t options, xlog_eventid wanted, xlog_timestamp start, xlog_timestamp end,
                               uint32_t maximum) {
  Retrieval retrieval(options, wanted);
  retrieval.start = start;
  retrieval.end = end;
  retrieval.maximum = maximum;
  if (retrieval.run() != 0) {
    char failure[32];
    snprintf(failure, sizeof failure, "%d/0x%X", retrieval.sysrc, retrieval.comprc);
    return {failure};
  }
  std::vector<std::string> all;
  for (const xlog_log_entry* entry = retrieval.result; entry; entry = entry->next)
    all.push_back(std::to_string(entry->eventid.user));
  return all;
}

}  // namespace test
