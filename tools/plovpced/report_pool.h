// The memory of the reports in hand, coming in or waiting for the log: a bounded number, whatever is sent. Thread-safe.
#ifndef PLOV_PCED_REPORT_POOL_H
#define PLOV_PCED_REPORT_POOL_H

#include <atomic>
#include <memory>
#include <new>

#include "pce_wire.h"

namespace plov::pced {

class ReportPool;

struct GiveBack {
  ReportPool* pool = nullptr;
  void operator()(pce_wire_take_log* report) const;
};
using ReportPtr = std::unique_ptr<pce_wire_take_log, GiveBack>;

class ReportPool {
 public:
  explicit ReportPool(unsigned limit) : left_(limit) {}
  ReportPool(const ReportPool&) = delete;
  ReportPool& operator=(const ReportPool&) = delete;

  // Zeroed; none when as many as may be are in hand, or there is no memory.
  ReportPtr take() {
    if (left_.fetch_sub(1) > 0)
      if (auto* const report = new (std::nothrow) pce_wire_take_log()) return ReportPtr(report, GiveBack{this});
    ++left_;
    return ReportPtr(nullptr, GiveBack{this});
  }

 private:
  friend GiveBack;
  std::atomic<int> left_;
};

inline void GiveBack::operator()(pce_wire_take_log* report) const {
  delete report;
  ++pool->left_;
}

}  // namespace plov::pced

#endif
