// What the tool writes: text, colour, JSON lines, complaints.
#ifndef PLOV_CTL_OUTPUT_H
#define PLOV_CTL_OUTPUT_H

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace plov::ctl {

using Json = nlohmann::ordered_json;

enum class Colour { plain, dim, bold, red, green, yellow, cyan };

// "auto": a terminal that is not dumb, and NO_COLOR unset or empty. Decided once, before the pager takes the terminal's
// place.
void choose_colour(const std::string& when);
std::string paint(std::string_view text, Colour colour);

// Standard output. A reader that has gone away ends the program quietly, with the result known so far; any other
// failure to write is a Failure.
struct ReaderGone {};
void print(std::string_view text);
void print_line(const Json& object);  // one object a line
void flush_output();

void complain(std::string_view text);  // standard error, "plovctl: " in front

// Sends standard output through PLOVCTL_PAGER, PAGER or less, when it is a terminal.
void start_pager();
bool finish_pager();  // false when the pager could not be run

std::string grouped(uint64_t value);                     // "20,971,520"
std::string counted(uint64_t count, const char* thing);  // "1 log", "2 logs"
std::string pad(std::string_view text, size_t width);    // by characters, not bytes

}  // namespace plov::ctl

#endif
