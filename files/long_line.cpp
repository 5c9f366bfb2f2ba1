#include "files/long_line.h"

#include <stdint.h>
#include <string.h>
#include <time.h>

#include <charconv>
#include <string_view>

namespace plov::files {
namespace {

// Block devices are told as character devices: the readers of these listings know no other.
char type_character(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFDIR:
      return 'd';
    case S_IFCHR:
    case S_IFBLK:
      return 'c';
    case S_IFIFO:
      return 'p';
    case S_IFLNK:
      return 'l';
    case S_IFSOCK:
      return 's';
    default:
      return '-';
  }
}

constexpr const char* kPermissions[] = {"---", "--x", "-w-", "-wx", "r--", "r-x", "rw-", "rwx"};

// "%c%s%s%s%4d %-8d %-8d%9d %s %s\n" without printf, which would cost a tenth of a listing more.
class Writer {
 public:
  explicit Writer(char* line) : start_(line), at_(line) {}

  void text(std::string_view text) {
    memcpy(at_, text.data(), text.size());
    at_ += text.size();
  }
  void left(uint64_t value, size_t width) {
    const std::string_view digits = number(value);
    text(digits);
    blanks(width, digits.size());
  }
  void right(uint64_t value, size_t width) {
    const std::string_view digits = number(value);
    blanks(width, digits.size());
    text(digits);
  }
  size_t length() const { return static_cast<size_t>(at_ - start_); }

 private:
  std::string_view number(uint64_t value) {
    return {digits_, static_cast<size_t>(std::to_chars(digits_, digits_ + sizeof digits_, value).ptr - digits_)};
  }
  void blanks(size_t width, size_t used) {
    for (; used < width; ++used) *at_++ = ' ';
  }

  char* const start_;
  char* at_;
  char digits_[20];
};

void format_date(char (&text)[64], time_t time, int this_year) {
  struct tm local;
  text[0] = '\0';
  if (!localtime_r(&time, &local)) return;
  strftime(text, sizeof text, local.tm_year + 1900 == this_year ? "%b %e %R" : "%b %e  %Y", &local);
}

}  // namespace

size_t format_long_line(char (&line)[kLongLineSize], const struct stat& status, const char* name, const char* target,
                        int this_year) {
  char date[64];
  format_date(date, status.st_mtime, this_year);
  constexpr size_t kArrow = sizeof " -> ";  // with a NUL
  const bool arrow = target && strlen(name) + strlen(target) + kArrow < kLongNameSize;
  const mode_t mode = status.st_mode;
  Writer writer(line);
  const char type = type_character(mode);
  writer.text({&type, 1});
  for (const unsigned shift : {6, 3, 0}) writer.text(kPermissions[mode >> shift & 7]);
  writer.right(status.st_nlink, 4);
  writer.text(" ");
  writer.left(status.st_uid, 8);
  writer.text(" ");
  writer.left(status.st_gid, 8);
  writer.right(static_cast<uint64_t>(status.st_size), 9);
  writer.text(" ");
  writer.text(date);
  writer.text(" ");
  writer.text(name);
  if (arrow) writer.text(" -> ");
  if (arrow) writer.text(target);
  writer.text("\n");
  return writer.length();
}

}  // namespace plov::files
