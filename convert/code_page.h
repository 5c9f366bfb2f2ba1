// The published code pages as Unicode, and the table that translates between two of them.
#ifndef PLOV_CONVERT_CODE_PAGE_H
#define PLOV_CONVERT_CODE_PAGE_H

#include <stddef.h>
#include <stdint.h>

#include <array>
#include <string_view>

#include "xcsf.h"

namespace plov::convert {

using Table = std::array<uint8_t, 256>;

// The graphic character of each byte; 0 is a control code, or nothing.
using CodePage = std::array<char16_t, 256>;

constexpr CodePage placed(CodePage page, size_t first, std::u16string_view characters) {
  for (const char16_t character : characters) page[first++] = character;
  return page;
}

// EBCDIC international. Below 0x40 and at 0xFF stand control codes.
inline constexpr CodePage kPage500 = placed({}, 0x40,
                                            u" \u00A0âäàáãåçñ[.<(+!"
                                            u"&éêëèíîïìß]$*);^"
                                            u"-/ÂÄÀÁÃÅÇÑ¦,%_>?"
                                            u"øÉÊËÈÍÎÏÌ`:#@'=\""
                                            u"Øabcdefghi«»ðýþ±"
                                            u"°jklmnopqrªºæ¸Æ¤"
                                            u"µ~stuvwxyz¡¿ÐÝÞ®"
                                            u"¢£¥·©§¶¼½¾¬|¯¨´×"
                                            u"{ABCDEFGHI\u00ADôöòóõ"
                                            u"}JKLMNOPQR¹ûüùúÿ"
                                            u"\\÷STUVWXYZ²ÔÖÒÓÕ"
                                            u"0123456789³ÛÜÙÚ");

// What all PC code pages share. 0x7F is a control code like those below the blank.
inline constexpr CodePage kAscii = placed({}, 0x20,
                                          u" !\"#$%&'()*+,-./0123456789:;<=>?"
                                          u"@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_"
                                          u"`abcdefghijklmnopqrstuvwxyz{|}~");

inline constexpr CodePage kPage437 = placed(kAscii, 0x80,
                                            u"ÇüéâäàåçêëèïîìÄÅ"
                                            u"ÉæÆôöòûùÿÖÜ¢£¥₧ƒ"
                                            u"áíóúñÑªº¿⌐¬½¼¡«»"
                                            u"░▒▓│┤╡╢╖╕╣║╗╝╜╛┐"
                                            u"└┴┬├─┼╞╟╚╔╩╦╠═╬╧"
                                            u"╨╤╥╙╘╒╓╫╪┘┌█▄▌▐▀"
                                            u"αßΓπΣσµτΦΘΩδ∞φε∩"
                                            u"≡±≥≤⌠⌡÷≈°∙·√ⁿ²■\u00A0");

inline constexpr CodePage kPage850 = placed(kAscii, 0x80,
                                            u"ÇüéâäàåçêëèïîìÄÅ"
                                            u"ÉæÆôöòûùÿÖÜø£Ø×ƒ"
                                            u"áíóúñÑªº¿®¬½¼¡«»"
                                            u"░▒▓│┤ÁÂÀ©╣║╗╝¢¥┐"
                                            u"└┴┬├─┼ãÃ╚╔╩╦╠═╬¤"
                                            u"ðÐÊËÈıÍÎÏ┘┌█▄¦Ì▀"
                                            u"ÓßÔÒõÕµþÞÚÛÙýÝ¯´"
                                            u"\u00AD±‗¾¶§÷¸°¨·¹³²■\u00A0");

// Each character of one page to its place in the other; what that page lacks, and every control code, to the mark.
constexpr Table same_characters(const CodePage& from, const CodePage& to) {
  Table table;
  table.fill(XCSF_UNCONVERTIBLE);
  for (size_t byte = 0; byte < from.size(); ++byte) {
    if (from[byte] == 0) continue;
    for (size_t place = 0; place < to.size(); ++place)
      if (to[place] == from[byte]) table[byte] = static_cast<uint8_t>(place);
  }
  return table;
}

}  // namespace plov::convert

#endif
