#include "output.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "failure.h"

namespace plov::ctl {
namespace {

bool colour_on = false;
FILE* pager = nullptr;
const char* pager_command = "if command -v less >/dev/null; then exec less -FRX; else exec cat; fi";

const char* setting(const char* name) {
  const char* value = getenv(name);
  return value != nullptr && *value != '\0' ? value : nullptr;
}

const char* code_of(Colour colour) {
  switch (colour) {
    case Colour::dim:
      return "2";
    case Colour::bold:
      return "1";
    case Colour::red:
      return "31";
    case Colour::green:
      return "32";
    case Colour::yellow:
      return "33";
    case Colour::cyan:
      return "36";
    default:
      return "";
  }
}

[[noreturn]] void output_failed() {
  if (errno == EPIPE) throw ReaderGone();
  throw Failure(std::string("standard output: ") + strerror(errno));
}

}  // namespace

void choose_colour(const std::string& when) {
  const char* terminal = setting("TERM");
  colour_on = when == "always" || (when == "auto" && isatty(STDOUT_FILENO) && !setting("NO_COLOR") &&
                                   terminal != nullptr && strcmp(terminal, "dumb") != 0);
}

std::string paint(std::string_view text, Colour colour) {
  if (!colour_on || colour == Colour::plain || text.empty()) return std::string(text);
  return std::string("\033[") + code_of(colour) + "m" + std::string(text) + "\033[0m";
}

void print(std::string_view text) {
  if (fwrite(text.data(), 1, text.size(), pager ? pager : stdout) != text.size()) output_failed();
}

void print_line(const Json& object) {
  print(object.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n");
}

void flush_output() {
  if (fflush(pager ? pager : stdout) != 0) output_failed();
}

void complain(std::string_view text) {
  fflush(stdout);
  fprintf(stderr, "plovctl: %.*s\n", static_cast<int>(text.size()), text.data());
}

void start_pager() {
  if (!isatty(STDOUT_FILENO)) return;
  for (const char* name : {"PAGER", "PLOVCTL_PAGER"})
    if (const char* command = setting(name)) pager_command = command;
  if (strcmp(pager_command, "cat") == 0) return;
  fflush(stdout);
  pager = popen(pager_command, "we");
}

bool finish_pager() {
  if (!pager) return true;
  const int status = pclose(pager);
  pager = nullptr;
  // What the shell ends with when it cannot run a command.
  if (!WIFEXITED(status) || (WEXITSTATUS(status) != 126 && WEXITSTATUS(status) != 127)) return true;
  complain(std::string("the pager \"") + pager_command + "\" cannot be run; use --no-pager");
  return false;
}

std::string grouped(uint64_t value) {
  std::string text = std::to_string(value);
  for (size_t i = text.size(); i > 3; i -= 3) text.insert(i - 3, ",");
  return text;
}

std::string counted(uint64_t count, const char* thing) {
  return grouped(count) + " " + thing + (count == 1 ? "" : "s");
}

std::string pad(std::string_view text, size_t width) {
  size_t characters = 0;
  for (char c : text) characters += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  std::string padded(text);
  if (characters < width) padded.append(width - characters, ' ');
  return padded;
}

}  // namespace plov::ctl
