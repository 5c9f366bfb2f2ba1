// The translations between code page 500 and the PC code pages: same characters, and how they deviate.
#ifndef PLOV_CONVERT_CODE_PAGE_TABLES_H
#define PLOV_CONVERT_CODE_PAGE_TABLES_H

#include <initializer_list>

#include "convert/code_page.h"

namespace plov::convert {

struct Deviation {
  uint8_t host, pc;
};
using Deviations = std::initializer_list<Deviation>;

// Only the bytes named change; of two deviations of one byte the later holds.
constexpr Table to_pc(Table table, Deviations deviations) {
  for (const Deviation& d : deviations) table[d.host] = d.pc;
  return table;
}
constexpr Table to_host(Table table, Deviations deviations) {
  for (const Deviation& d : deviations) table[d.pc] = d.host;
  return table;
}

// Host texts hold the required blank, and 0xE1, where a blank is meant; that blank comes back as the plain one.
inline constexpr Deviations kRequiredBlank = {{0x41, 0x20}};
inline constexpr Deviations kBlanks = {{0x41, 0x20}, {0xE1, 0x20}};

// The PC shows its paragraph and section signs for control codes; © takes the place of its ƒ, which the host lacks.
inline constexpr Deviations kSigns = {{0xB4, 0x9F}, {0xB5, 0x15}, {0xB6, 0x14}};

inline constexpr Table table_500to437 = to_pc(to_pc(same_characters(kPage500, kPage437), kBlanks), kSigns);
// ó comes back as C: callers depend on it.
inline constexpr Table table_437to500 = to_host(to_host(same_characters(kPage437, kPage500), kSigns), {{0xC3, 0xA2}});

inline constexpr Deviations kOnly850 = {{0xBF, 0xF2}, {0xDA, 0xD5}};
inline constexpr Table table_500to850 =
    to_pc(to_pc(to_pc(same_characters(kPage500, kPage850), kBlanks), kSigns), kOnly850);
inline constexpr Table table_850to500 = to_host(to_host(same_characters(kPage850, kPage500), kSigns), kOnly850);

// The single-byte halves of the double-byte pages: ASCII and a few characters at places of their own. A soft hyphen and
// a hyphen share 0x2D, which comes back as the soft one.
inline constexpr Table kAsciiToPc = to_pc(same_characters(kPage500, kAscii), kRequiredBlank);
inline constexpr Table kAsciiToHost = same_characters(kAscii, kPage500);

inline constexpr Deviations kOnly934 = {{0x6A, 0xDF}, {0xB0, 0x80}, {0xBA, 0xFD},
                                        {0xBC, 0x7E}, {0xCA, 0x2D}, {0xE0, 0xFE}};
inline constexpr Table table_500to934 = to_pc(kAsciiToPc, kOnly934);
inline constexpr Table table_934to500 = to_host(to_host(kAsciiToHost, kOnly934), {{0x40, 0xC0}, {0xA1, 0xFF}});
inline constexpr const Table& table_500to944 = table_500to934;
inline constexpr const Table& table_944to500 = table_934to500;

inline constexpr Deviations kOnly938 = {{0x6A, 0xFE}, {0xB0, 0x80}, {0xBA, 0xFD}, {0xCA, 0x2D}};
inline constexpr Table table_500to938 = to_pc(kAsciiToPc, kOnly938);
inline constexpr Table table_938to500 = to_host(kAsciiToHost, kOnly938);
inline constexpr const Table& table_500to948 = table_500to938;
inline constexpr const Table& table_948to500 = table_938to500;

// Both the broken bar and the backslash stand at 0xFE; the backslash comes back. @ comes back as %.
inline constexpr Deviations kOnly942 = {{0x6A, 0xFE}, {0xB0, 0x80}, {0xB1, 0xA0}, {0xB2, 0x5C}, {0xB3, 0xA5},
                                        {0xBA, 0xFD}, {0xBC, 0x7E}, {0xCA, 0x2D}, {0xE0, 0xFE}};
inline constexpr Table table_500to942 = to_pc(kAsciiToPc, kOnly942);
inline constexpr Table table_942to500 = to_host(to_host(kAsciiToHost, kOnly942), {{0x6C, 0x40}, {0xA1, 0xFF}});

}  // namespace plov::convert

#endif
