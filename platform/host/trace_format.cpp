#include "platform/host/trace_format.h"

#include <limits.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

namespace plov::host {
namespace {

struct Output {
  char* at;
  char* end;

  size_t room() const { return static_cast<size_t>(end - at); }
  // Most numbers have no sign, no blanks, no zeros: nothing is called for these.
  void text(const char* bytes, size_t count) {
    if (count == 0) return;
    count = std::min(count, room());
    memcpy(at, bytes, count);
    at += count;
  }
  void fill(char byte, size_t count) {
    if (count == 0) return;
    count = std::min(count, room());
    memset(at, byte, count);
    at += count;
  }
};

struct Arguments {
  va_list list;
};

enum class Length { none, hh, h, l, ll, j, z, t, L };

struct Conversion {
  bool left, plus, space, alternate, zero;
  int width;      // 0: none
  int precision;  // -1: none
  Length length;
  char letter;
};

int read_number(const char*& at) {
  int number = 0;
  for (; *at >= '0' && *at <= '9'; ++at)
    if (number < 100000) number = number * 10 + (*at - '0');
  return number;
}

Length read_length(const char*& at) {
  switch (*at) {
    case 'h':
      return *++at == 'h' ? (++at, Length::hh) : Length::h;
    case 'l':
      return *++at == 'l' ? (++at, Length::ll) : Length::l;
    case 'j':
      return ++at, Length::j;
    case 'z':
      return ++at, Length::z;
    case 't':
      return ++at, Length::t;
    case 'L':
      return ++at, Length::L;
    default:
      return Length::none;
  }
}

// Reads what follows a "%", up to and with the conversion letter ('\0' when the format ends before).
Conversion read_conversion(const char*& at, Arguments& arguments) {
  Conversion c = {};
  for (;; ++at) {
    if (*at == '-')
      c.left = true;
    else if (*at == '+')
      c.plus = true;
    else if (*at == ' ')
      c.space = true;
    else if (*at == '#')
      c.alternate = true;
    else if (*at == '0')
      c.zero = true;
    else if (*at != '\'')
      break;
  }
  if (*at == '*') {
    ++at;
    c.width = va_arg(arguments.list, int);
    if (c.width < 0) {
      c.left = true;
      c.width = c.width == INT_MIN ? INT_MAX : -c.width;
    }
  } else {
    c.width = read_number(at);
  }
  c.precision = -1;
  if (*at == '.') {
    ++at;
    if (*at == '*') {
      ++at;
      c.precision = std::max(va_arg(arguments.list, int), -1);
    } else {
      c.precision = read_number(at);
    }
  }
  c.length = read_length(at);
  c.letter = *at;
  if (c.letter != '\0') ++at;
  return c;
}

intmax_t signed_argument(Arguments& arguments, Length length) {
  switch (length) {
    case Length::hh:
      return static_cast<signed char>(va_arg(arguments.list, int));
    case Length::h:
      return static_cast<short>(va_arg(arguments.list, int));
    case Length::l:
      return va_arg(arguments.list, long);
    case Length::ll:
    case Length::L:
    case Length::j:
      return va_arg(arguments.list, intmax_t);
    case Length::z:
    case Length::t:
      return va_arg(arguments.list, ptrdiff_t);
    default:
      return va_arg(arguments.list, int);
  }
}

uintmax_t unsigned_argument(Arguments& arguments, Length length) {
  switch (length) {
    case Length::hh:
      return static_cast<unsigned char>(va_arg(arguments.list, unsigned));
    case Length::h:
      return static_cast<unsigned short>(va_arg(arguments.list, unsigned));
    case Length::l:
      return va_arg(arguments.list, unsigned long);
    case Length::ll:
    case Length::L:
    case Length::j:
      return va_arg(arguments.list, uintmax_t);
    case Length::z:
    case Length::t:
      return va_arg(arguments.list, size_t);
    default:
      return va_arg(arguments.list, unsigned);
  }
}

// The base is a constant and most values have 32 bits: no line waits for a division.
template <unsigned base>
char* write_digits(char* end, uintmax_t value, const char* digits) {
  for (; value > UINT32_MAX; value /= base) *--end = digits[value % base];
  for (auto low = static_cast<uint32_t>(value); low != 0; low /= base) *--end = digits[low % base];
  return end;
}

// `prefix` is a sign or "0x".
void put_number(Output& out, const Conversion& c, const char* prefix, uintmax_t value, unsigned base, bool upper) {
  char buffer[24];
  char* const end = buffer + sizeof buffer;
  const char* digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
  const char* start = base == 10   ? write_digits<10>(end, value, digits)
                      : base == 16 ? write_digits<16>(end, value, digits)
                                   : write_digits<8>(end, value, digits);
  const size_t count = static_cast<size_t>(end - start), prefix_count = *prefix == '\0' ? 0 : strlen(prefix);
  size_t zeros = 0;
  const size_t least = c.precision < 0 ? 1 : static_cast<size_t>(c.precision);
  if (least > count) zeros = least - count;
  if (base == 8 && c.alternate && zeros == 0) zeros = value != 0 || count == 0 ? 1 : 0;
  const size_t width = static_cast<size_t>(c.width);
  size_t used = prefix_count + zeros + count;
  if (c.zero && !c.left && c.precision < 0 && width > used) {
    zeros += width - used;
    used = width;
  }
  const size_t blanks = width > used ? width - used : 0;
  if (!c.left) out.fill(' ', blanks);
  out.text(prefix, prefix_count);
  out.fill('0', zeros);
  out.text(start, count);
  if (c.left) out.fill(' ', blanks);
}

void put_signed(Output& out, const Conversion& c, intmax_t value) {
  const char* sign = value < 0 ? "-" : c.plus ? "+" : c.space ? " " : "";
  const uintmax_t magnitude = value < 0 ? 0 - static_cast<uintmax_t>(value) : static_cast<uintmax_t>(value);
  put_number(out, c, sign, magnitude, 10, false);
}

void put_string(Output& out, const Conversion& c, const char* string) {
  size_t limit = c.precision < 0 ? SIZE_MAX : static_cast<size_t>(c.precision);
  if (!string) string = limit >= 6 ? "(null)" : "";
  const size_t count = strnlen(string, std::min(limit, out.room()));
  const size_t width = static_cast<size_t>(c.width);
  const size_t blanks = width > count ? width - count : 0;
  if (!c.left) out.fill(' ', blanks);
  out.text(string, count);
  if (c.left) out.fill(' ', blanks);
}

void put_character(Output& out, Conversion c, char character) {
  const char string[2] = {character, '\0'};
  if (character == '\0') {
    out.fill(' ', c.width > 1 ? static_cast<size_t>(c.width) : 1);  // a trace line is text
    return;
  }
  c.precision = -1;
  put_string(out, c, string);
}

void put_pointer(Output& out, Conversion c, const void* pointer) {
  if (!pointer) {
    c.precision = -1;
    put_string(out, c, "(nil)");
  } else {
    put_number(out, c, "0x", reinterpret_cast<uintptr_t>(pointer), 16, false);
  }
}

void put_floating(Output& out, const Conversion& c, Arguments& arguments) {
  char format[16], text[512];
  snprintf(format, sizeof format, "%%%s%s%s%s%s*.*%s%c", c.left ? "-" : "", c.plus ? "+" : "", c.space ? " " : "",
           c.alternate ? "#" : "", c.zero ? "0" : "", c.length == Length::L ? "L" : "", c.letter);
  const int width = std::min(c.width, static_cast<int>(sizeof text)), precision = std::min(c.precision, 100);
  int count;
  if (c.length == Length::L)
    count = snprintf(text, sizeof text, format, width, precision, va_arg(arguments.list, long double));
  else
    count = snprintf(text, sizeof text, format, width, precision, va_arg(arguments.list, double));
  if (count > 0) out.text(text, std::min(static_cast<size_t>(count), sizeof text - 1));
}

// False when the conversion is none that we know.
bool put_conversion(Output& out, const Conversion& c, Arguments& arguments) {
  switch (c.letter) {
    case 's':
    case 'S':
      return put_string(out, c, va_arg(arguments.list, const char*)), true;
    case 'd':
    case 'i':
      return put_signed(out, c, signed_argument(arguments, c.length)), true;
    case 'u':
      return put_number(out, c, "", unsigned_argument(arguments, c.length), 10, false), true;
    case 'x':
    case 'X': {
      const uintmax_t value = unsigned_argument(arguments, c.length);
      const char* prefix = !c.alternate || value == 0 ? "" : c.letter == 'x' ? "0x" : "0X";
      return put_number(out, c, prefix, value, 16, c.letter == 'X'), true;
    }
    case 'o':
      return put_number(out, c, "", unsigned_argument(arguments, c.length), 8, false), true;
    case 'c':
      return put_character(out, c, static_cast<char>(va_arg(arguments.list, int))), true;
    case 'p':
      return put_pointer(out, c, va_arg(arguments.list, const void*)), true;
    case 'e':
    case 'E':
    case 'f':
    case 'F':
    case 'g':
    case 'G':
    case 'a':
    case 'A':
      return put_floating(out, c, arguments), true;
    default:
      return false;
  }
}

}  // namespace

size_t format_line(char* out, size_t size, const char* format, va_list list) {
  Output output = {out, out + size};
  Arguments arguments;
  va_copy(arguments.list, list);
  // Not strchrnul: a 32-bit C library has none but the byte by byte one.
  const char* const end = format + strlen(format);
  while (output.room() > 0) {
    const auto* percent = static_cast<const char*>(memchr(format, '%', static_cast<size_t>(end - format)));
    if (!percent) percent = end;
    output.text(format, static_cast<size_t>(percent - format));
    if (*percent == '\0') break;
    format = percent + 1;
    if (*format == '%') {
      output.fill('%', 1);
      ++format;
      continue;
    }
    const Conversion conversion = read_conversion(format, arguments);
    if (conversion.letter == 'n') {
      (void)va_arg(arguments.list, void*);
      output.text(percent, static_cast<size_t>(format - percent));
    } else if (!put_conversion(output, conversion, arguments)) {
      output.text(percent, strlen(percent));
      break;
    }
  }
  va_end(arguments.list);
  return static_cast<size_t>(output.at - out);
}

}  // namespace plov::host
