// An exception report as the entry of the microcode log that it becomes. No I/O.
#ifndef PLOV_PCED_REPORT_ENTRY_H
#define PLOV_PCED_REPORT_ENTRY_H

#include <string>
#include <vector>

#include "pce_wire.h"
#include "xlog.h"

namespace plov::pced {

// Points into the report, and into itself. The report's lengths are believed up to the sizes of its areas.
class ReportEntry {
 public:
  explicit ReportEntry(const pce_wire_take_log& report);
  ReportEntry(const ReportEntry&) = delete;
  ReportEntry& operator=(const ReportEntry&) = delete;

  xlog_microcode_request& request() { return request_; }

 private:
  void add(uint8_t id, const void* area, uint32_t size);

  xlog_microcode_request request_ = {};
  xlog_data_node nodes_[4] = {};
  unsigned count_ = 0;
};

// The report's text, line by line.
std::vector<std::string> report_lines(const pce_wire_take_log& report);

}  // namespace plov::pced

#endif
