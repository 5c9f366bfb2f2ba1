// The time of day as a record.
#include <errno.h>
#include <sys/time.h>
#include <time.h>

#include "xcsf.h"
#include "xtr.h"

namespace {

constexpr int32_t kFailed = 2;

}  // namespace

int32_t xcsf_get_tod(XcsfTimeOfDay* record) {
  timeval now;
  if (gettimeofday(&now, nullptr) != 0) {
    xtr_trace("XCSFTODF: error %d on gettimeofday call", errno);
    return kFailed;
  }
  tm local;
  if (localtime_r(&now.tv_sec, &local) != &local) {
    xtr_trace("XCSFTODF: error on localtime_r call");
    return kFailed;
  }
  record->year = static_cast<uint16_t>(local.tm_year + 1900);
  record->month = static_cast<uint8_t>(local.tm_mon + 1);
  record->day = static_cast<uint8_t>(local.tm_mday);
  record->hour = static_cast<uint8_t>(local.tm_hour);
  record->minute = static_cast<uint8_t>(local.tm_min);
  record->second = static_cast<uint8_t>(local.tm_sec);
  record->hundredths = static_cast<uint8_t>(now.tv_usec / 10000);
  return 0;
}

int32_t xcsf_tod_check(const XcsfTimeOfDay* record) {
  const bool good = record->month >= 1 && record->month <= 12 && record->day >= 1 && record->day <= 31 &&
                    record->hour < 24 && record->minute < 60 && record->second < 60;
  return good ? 0 : kFailed;
}
