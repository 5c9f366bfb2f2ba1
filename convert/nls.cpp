// Texts by the locale: upper case, comparison, numbers, sorting, dates.
#include <ctype.h>
#include <locale.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "frame/memory.h"
#include "xcsf.h"
#include "xtr.h"

#pragma GCC diagnostic ignored "-Wformat-y2k"  // how many digits a year has is the locale's own affair

namespace {

char* copy_of(const char* text) {
  const size_t size = strlen(text) + 1;
  auto* copy = static_cast<char*>(PLOV_MALLOC(size));
  if (copy) memcpy(copy, text, size);
  return copy;
}

// Appends to a text whose end it knows. A NUL, which is the separator of a locale without one, appends nothing.
class Appender {
 public:
  explicit Appender(char* text) : end_(text + strlen(text)) {}
  void operator()(char character) {
    if (character == 0) return;
    *end_++ = character;
    *end_ = 0;
  }

 private:
  char* end_;
};

int compare_fields(const void* field1, const void* field2, void* width) {
  const int order =
      strncmp(static_cast<const char*>(field1), static_cast<const char*>(field2), *static_cast<const uint32_t*>(width));
  return (order > 0) - (order < 0);
}

}  // namespace

char* xcsf_nlupper(char* text) {
  xtr_trace("XCSFNLST: -> xcsf_nlupper");
  for (char* c = text; *c; ++c) *c = static_cast<char>(toupper(static_cast<unsigned char>(*c)));
  xtr_trace("XCSFNLST: <- xcsf_nlupper");
  return text;
}

int32_t xcsf_nlstrcmpi(const char* text1, const char* text2) {
  xtr_trace("XCSFNLST: -> xcsf_nlstrcmpi");
  xtr_trace("XCSFNLSD: s1=[%s], s2=[%s]", text1, text2);
  // Without memory it looks as if text 1 sorted after text 2, and the copy that was made is never freed. Callers know
  // no other result; a code of its own would be taken for an order too.
  int32_t result = 2;
  char* const copy1 = copy_of(text1);
  char* const copy2 = copy_of(text2);
  if (copy1 && copy2) {
    result = strcoll(xcsf_nlupper(copy1), xcsf_nlupper(copy2));
    PLOV_FREE(copy1);
    PLOV_FREE(copy2);
  }
  xtr_trace("XCSFNLSF: retval=%d", result);
  xtr_trace("XCSFNLST: <- xcsf_nlstrcmpi");
  return result;
}

char* xcsf_nls_num_format(const char* digits, uint32_t decimals, char* out) {
  xtr_trace("XCSFNLST: -> xcsf_nls_num_format");
  const lconv* const locale = localeconv();
  const char separator = locale->thousands_sep[0];
  const size_t length = strlen(digits);
  const size_t fraction = decimals < length ? decimals : length;
  const size_t integer = length - fraction;
  Appender append(out);
  for (size_t i = 0; i < integer; ++i) {
    // Groups of three, counted from the point.
    if (i > 0 && (integer - i) % 3 == 0) append(separator);
    append(digits[i]);
  }
  if (decimals != 0) append(locale->decimal_point[0]);
  for (size_t i = integer; i < length; ++i) append(digits[i]);
  xtr_trace("XCSFNLST: <- xcsf_nls_num_format");
  return out;
}

// Count, width, base: `qsort` takes its base first.
int32_t xcsf_nls_sort(uint32_t count, uint32_t width, void* base) {
  xtr_trace("XCSFNLST: -> xcsf_nls_sort");
  qsort_r(base, count, width, compare_fields, &width);
  xtr_trace("XCSFNLST: <- xcsf_nls_sort");
  return 0;
}

char* xcsf_nls_time_and_date(uint32_t size, const xcsf_time* time, char* buffer) {
  xtr_trace("XCSFNLST: -> xcsf_nls_time_and_date");
  const time_t seconds = *time;
  const tm* const local = localtime(&seconds);
  if ((!local || strftime(buffer, size, "%c", local) == 0) && size != 0) buffer[0] = 0;
  xtr_trace("XCSFNLST: <- xcsf_nls_time_and_date");
  return buffer;
}
