// Texts by the locale, and the time of day, over doubles of the C library where the machine has only one answer.
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <locale.h>
#include <stdlib.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>

#include <string>
#include <vector>

#include "plovmemdebug.h"
#include "support/doubles.h"
#include "support/trace_double.h"
#include "xcsf.h"

namespace {

using Lines = std::vector<std::string>;
using testing::ElementsAre;

const char* separator = nullptr;
const char* point = ".";
int allocations_until_failure = -1;
void* last_block;
bool no_time = false, no_local_time = false;

// The console's hour, wherever the test runs: 2026-02-03 04:05:06.789 in UTC.
constexpr time_t kNow = 1770091506;

}  // namespace

extern "C" {
lconv* localeconv() noexcept {
  static lconv locale;
  locale = *REAL(localeconv)();
  if (!separator) return &locale;
  locale.thousands_sep = const_cast<char*>(separator);
  locale.decimal_point = const_cast<char*>(point);
  return &locale;
}

void* plovmemdebug_malloc(size_t size, const char* file, int32_t line) {
  if (allocations_until_failure-- == 0) return nullptr;
  return last_block = REAL(plovmemdebug_malloc)(size, file, line);
}

// The library's, of 64 bits on either ABI.
#if PLOV_ILP32
#define GETTIMEOFDAY __gettimeofday64
#define LOCALTIME_R __localtime64_r
#else
#define GETTIMEOFDAY gettimeofday
#define LOCALTIME_R localtime_r
#endif

int GETTIMEOFDAY(timeval* now, void*) noexcept {
  if (no_time) return errno = EPERM, -1;
  *now = {kNow, 789999};
  return 0;
}

tm* LOCALTIME_R(const time_t* seconds, tm* local) noexcept {
  return no_local_time ? nullptr : gmtime_r(seconds, local);
}
}

namespace {

std::string formatted(const char* digits, uint32_t decimals) {
  char out[64] = "=";
  EXPECT_EQ(xcsf_nls_num_format(digits, decimals, out), out);
  return out;
}

TEST(Locale, UpperCaseInPlace) {
  char text[] = "aZ-\xE4 9";
  EXPECT_EQ(xcsf_nlupper(text), text);
  EXPECT_STREQ(text, "AZ-\xE4 9") << "of the C locale";
  EXPECT_EQ(traced(), Lines({"XCSFNLST: -> xcsf_nlupper", "XCSFNLST: <- xcsf_nlupper"}));
}

TEST(Locale, ComparisonTracesWhatItCompares) {
  const uint32_t held = plovmemdebug_list(nullptr, nullptr);
  EXPECT_EQ(xcsf_nlstrcmpi("Alpha", "aLPHA"), 0);
  EXPECT_THAT(traced(),
              ElementsAre("XCSFNLST: -> xcsf_nlstrcmpi", "XCSFNLSD: s1=[Alpha], s2=[aLPHA]",
                          "XCSFNLST: -> xcsf_nlupper", "XCSFNLST: <- xcsf_nlupper", "XCSFNLST: -> xcsf_nlupper",
                          "XCSFNLST: <- xcsf_nlupper", "XCSFNLSF: retval=0", "XCSFNLST: <- xcsf_nlstrcmpi"));
  EXPECT_LT(xcsf_nlstrcmpi("", "a"), 0);
  EXPECT_GT(xcsf_nlstrcmpi("b", "A"), 0);
  EXPECT_LT(xcsf_nlstrcmpi("z", "_"), 0) << "as upper case";
  EXPECT_EQ(plovmemdebug_list(nullptr, nullptr), held);
}

TEST(Locale, ComparisonWithoutMemoryLooksLikeAnOrderAndKeepsTheOtherCopy) {
  const uint32_t held = plovmemdebug_list(nullptr, nullptr);
  for (const int copies : {0, 1}) {
    allocations_until_failure = copies;
    EXPECT_EQ(xcsf_nlstrcmpi("a", "b"), 2);
    EXPECT_EQ(plovmemdebug_list(nullptr, nullptr), held + 1);
    plovmemdebug_free(last_block, __FILE__, __LINE__);
  }
  EXPECT_EQ(traced().back(), "XCSFNLST: <- xcsf_nlstrcmpi");
  EXPECT_EQ(traced()[traced().size() - 2], "XCSFNLSF: retval=2");
}

TEST(Locale, NumbersAreGroupedByThreeFromThePoint) {
  separator = ",";
  EXPECT_EQ(formatted("1234567", 0), "=1,234,567");
  EXPECT_EQ(formatted("123456", 0), "=123,456");
  EXPECT_EQ(formatted("1234", 0), "=1,234");
  EXPECT_EQ(formatted("999", 0), "=999");
  EXPECT_EQ(formatted("7", 0), "=7");
  EXPECT_EQ(formatted("", 0), "=");
  EXPECT_EQ(formatted("1234567", 2), "=12,345.67");
  EXPECT_EQ(formatted("123456789", 3), "=123,456.789");
  EXPECT_EQ(formatted("99950", 2), "=999.50");
  EXPECT_EQ(formatted("67", 2), "=.67");
  EXPECT_EQ(formatted("6", 9), "=.6") << "more decimals than digits";
  EXPECT_THAT(Lines(trace_lines, trace_lines + 2),
              ElementsAre("XCSFNLST: -> xcsf_nls_num_format", "XCSFNLST: <- xcsf_nls_num_format"));
  separator = "\xE2\x80\xAF";  // the first byte of what is one character
  point = ",,";
  EXPECT_EQ(formatted("1234567", 2),
            "=12\xE2"
            "345,67");
  separator = nullptr;
  EXPECT_EQ(formatted("1234567", 2), "=12345.67") << "the C locale has no separator";
}

TEST(Locale, SortsFieldsByTheirBytes) {
  char fields[] = "b\0??a\0zzB\0\0\0\xE4\0\0\0ab\0xa\0aa";
  EXPECT_EQ(xcsf_nls_sort(6, 4, fields), 0);
  EXPECT_EQ(std::string(fields + 0), "B");
  EXPECT_EQ(std::string(fields + 4), "a");
  EXPECT_EQ(std::string(fields + 8), "a");
  EXPECT_EQ(std::string(fields + 12), "ab");
  EXPECT_EQ(std::string(fields + 16), "b");
  EXPECT_EQ(std::string(fields + 20), "\xE4");
  EXPECT_EQ(std::string(fields + 18, 2), "??") << "a field moves as a whole";
  // Texts without a NUL: their fields' width is all that is looked at.
  char full[] = {'b', 'b', 'a', 'b', 'a', 'a'};
  EXPECT_EQ(xcsf_nls_sort(3, 2, full), 0);
  EXPECT_EQ(std::string(full, 6), "aaabbb");
  EXPECT_EQ(traced(), Lines({"XCSFNLST: -> xcsf_nls_sort", "XCSFNLST: <- xcsf_nls_sort", "XCSFNLST: -> xcsf_nls_sort",
                             "XCSFNLST: <- xcsf_nls_sort"}));
}

TEST(Locale, DateIsTheLocalesInLocalTime) {
  setenv("TZ", "UTC-1", 1);
  const xcsf_time time = kNow;
  char buffer[32] = "#";
  EXPECT_EQ(xcsf_nls_time_and_date(sizeof buffer, &time, buffer), buffer);
  EXPECT_STREQ(buffer, "Tue Feb  3 05:05:06 2026");
  EXPECT_EQ(xcsf_nls_time_and_date(10, &time, buffer), buffer);
  EXPECT_STREQ(buffer, "") << "it does not fit";
  EXPECT_EQ(traced(), Lines({"XCSFNLST: -> xcsf_nls_time_and_date", "XCSFNLST: <- xcsf_nls_time_and_date",
                             "XCSFNLST: -> xcsf_nls_time_and_date", "XCSFNLST: <- xcsf_nls_time_and_date"}));
}

TEST(CodePages, CallIsTraced) {
  uint32_t page = 850, marks;
  EXPECT_EQ(xcsf_nls_cvtcode(nullptr, nullptr, 0, 0, &page, &marks), 0);
  EXPECT_EQ(traced(), Lines({"XCSFNLST: -> xcsf_nls_cvtcode", "XCSFNLST: <- xcsf_nls_cvtcode"}));
}

TEST(TimeOfDay, IsTakenOrItsFailureTraced) {
  XcsfTimeOfDay now = {};
  EXPECT_EQ(xcsf_get_tod(&now), 0);
  const XcsfTimeOfDay then = {2026, 2, 3, 4, 5, 6, 78};
  EXPECT_EQ(memcmp(&now, &then, sizeof now), 0);
  EXPECT_EQ(trace_count, 0u);
  no_local_time = true;
  EXPECT_EQ(xcsf_get_tod(&now), 2);
  no_time = true;
  EXPECT_EQ(xcsf_get_tod(&now), 2);
  EXPECT_EQ(traced(), Lines({"XCSFTODF: error on localtime_r call", "XCSFTODF: error 1 on gettimeofday call"}));
}

TEST(TimeOfDay, CheckLooksAtEachFieldByItself) {
  const auto check = [](XcsfTimeOfDay record) { return xcsf_tod_check(&record); };
  EXPECT_EQ(check({2026, 2, 31, 23, 59, 59, 99}), 0);
  EXPECT_EQ(check({0, 12, 1, 0, 0, 0, 255}), 0);
  for (const XcsfTimeOfDay& bad : std::vector<XcsfTimeOfDay>{{2026, 0, 1, 0, 0, 0, 0},
                                                             {2026, 13, 1, 0, 0, 0, 0},
                                                             {2026, 1, 0, 0, 0, 0, 0},
                                                             {2026, 1, 32, 0, 0, 0, 0},
                                                             {2026, 1, 1, 24, 0, 0, 0},
                                                             {2026, 1, 1, 0, 60, 0, 0},
                                                             {2026, 1, 1, 0, 0, 60, 0}})
    EXPECT_EQ(check(bad), 2);
}

}  // namespace
