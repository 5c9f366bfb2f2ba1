/*
 * Conversions: numbers, hexadecimal text, ASCII and EBCDIC, host and PC code pages, texts by the locale, time of day.
 *
 * This family stands apart from the convention in plov_api.h: there is no `comprc`, and NOTHING PROBES THE ARGUMENTS.
 * The caller owns every buffer and owes the room that each comment states; a bad pointer ends the process.
 *
 * Results. A function that converts characters returns the 1-based position of the first one that it could not convert,
 * 0 when all were; what was written before that character stays written. Nothing is logged.
 *
 * EBCDIC is code page 500. The code page tables follow the published mappings of 500, 437 and 850 to Unicode.
 *
 * Threads. The functions keep no state and may be called from any thread, those of the locale as far as the C library's
 * function behind them may: `toupper`, `strcoll` and `localeconv` beside no `setlocale`, `localtime` beside no other
 * call of itself. Only these (xcsf_nl*) trace.
 */
#ifndef XCSF_H
#define XCSF_H

#include "plov_api.h"

PLOV_BEGIN_DECLS

#define XCSF_BAD_LENGTH 32u /* a text of digits that is empty or too long */

/* The value of `strip` that removes leading zeros; any other leaves them. */
#define XCSF_STRIP 1

/* Numbers to text. */

/* 2 x `count` upper-case hexadecimal digits of the low 8 x `count` bits and a NUL: 2 x `count` + 1 bytes. */
PLOV_API void xcsf_int2char(char* text, uint32_t value, uint32_t count);

/* 8 upper-case hexadecimal digits and a NUL: 9 bytes. */
PLOV_API void xcsf_far2char(char* text, uint32_t value);

/* The same. XCSF_STRIP removes every leading zero, the last one too: 0 is the empty text. `text` must have 11 bytes. */
PLOV_API void xcsf_long2char(char* text, uint32_t value, int32_t strip);

/* 5 (10) decimal digits and a NUL: 6 (11) bytes. XCSF_STRIP removes leading zeros but keeps one digit: 0 is "0". */
PLOV_API void xcsf_short2decchar(char* text, uint16_t value, int32_t strip);
PLOV_API void xcsf_long2decchar(char* text, uint32_t value, int32_t strip);

/* Text to numbers. */

/*
 * Hexadecimal text of 1 to 8 characters, else XCSF_BAD_LENGTH and the value 0. Blanks and NULs are passed over wherever
 * they stand. Every letter is taken: one beyond F is a digit of more than four bits that spills into its neighbours.
 * `*value` holds what stands before a bad character.
 */
PLOV_API uint32_t xcsf_char2int(uint32_t* value, const char* text, uint32_t length);
PLOV_API uint32_t xcsf_char2long(uint32_t* value, const char* text, uint32_t length);

/*
 * Decimal text of 1 to 10 digits, no blanks, else XCSF_BAD_LENGTH with `*value` as it was. The value is cut to 32 bits.
 * Before a bad character the digits count by their place in the whole text: "12a" leaves 120.
 */
PLOV_API uint32_t xcsf_decchar2int(uint32_t* value, const char* text, uint32_t length);

/* Bytes and hexadecimal text; `row` names the text's characters. */

#define XCSF_ASCII 0u
#define XCSF_EBCDIC 1u

/* Two upper-case digits a byte and a NUL: 2 x `count` + 1 bytes. Returns the address of the NUL. */
PLOV_API char* xcsf_hex2char(char* text, const void* bytes, uint32_t count);
PLOV_API char* xcsf_hex2ebcdic(char* text, const void* bytes, uint32_t count);
PLOV_API char* xcsf_unpack_hex(char* text, const void* bytes, uint32_t count, uint32_t row);

/*
 * Two digits of either case to a byte: (`count` + 1) / 2 bytes, not terminated; with an odd count the last low half is
 * 0. Returns the position of the first character that is no digit, or 0. `bytes` and `text` may be the same.
 */
PLOV_API uint32_t xcsf_char2hex(void* bytes, const char* text, uint32_t count);
PLOV_API uint32_t xcsf_ebcdic2hex(void* bytes, const char* text, uint32_t count);
PLOV_API uint32_t xcsf_pack_hex(void* bytes, const char* text, uint32_t count, uint32_t row);

/* ASCII and EBCDIC text. */

/*
 * Letters and digits alone, up to the first other character, whose position is returned. A NUL is written behind what
 * was translated: `count` + 1 bytes.
 */
PLOV_API uint32_t xcsf_ascii2ebcdic(char* out, const char* in, uint32_t count);
PLOV_API uint32_t xcsf_ebcdic2ascii(char* out, const char* in, uint32_t count);

/*
 * The same between any two rows (XCSF_ASCII, XCSF_EBCDIC), of whose characters the first `row_length` count:
 * 0-9 A-F a-f G-Z g-z, so that 62 are all, 22 the hexadecimal digits and 10 the decimal ones.
 */
PLOV_API uint32_t xcsf_convert_code(char* out, const char* in, uint32_t count, uint32_t target_row, uint32_t source_row,
                                    uint32_t row_length);

/*
 * For display: letters, digits, blank, hyphen and underscore are translated, every other byte is a full stop. `count`
 * bytes, no NUL. `out` and `in` may be the same.
 */
PLOV_API void xcsf_da_ebcdic2ascii(char* out, const char* in, uint32_t count);
PLOV_API void xcsf_da_ascii2ebcdic(char* out, const char* in, uint32_t count);

/* Code pages. */

#define XCSF_TO_PC 0   /* code page 500 to the PC's; any other direction is back */
#define XCSF_TO_HOST 1 /* the PC's code page to 500 */
#define XCSF_UNCONVERTIBLE 0xFFu

/*
 * Translates `count` bytes between code page 500 and `*code_page`: 437, 850, 934, 938, 942, 944 or 948; any other value
 * is replaced by 850. Control codes and characters that the other page lacks become XCSF_UNCONVERTIBLE;
 * `*unconvertible` receives the number of such bytes written. A count below 1 translates nothing. No NUL is added.
 * `out` and `in` may be the same, but must not overlap otherwise. Always 0.
 */
PLOV_API int32_t xcsf_nls_cvtcode(void* out, const void* in, int32_t count, int32_t direction, uint32_t* code_page,
                                  uint32_t* unconvertible);

/* Texts by the locale in force. */

/* Upper-cases in place, byte by byte. Returns `text`. */
PLOV_API char* xcsf_nlupper(char* text);

/* `strcoll` of the two texts in upper case: below 0, 0 or above. 2 also when there is no memory. */
PLOV_API int32_t xcsf_nlstrcmpi(const char* text1, const char* text2);

/*
 * Appends the digits of `digits`, the last `decimals` of which are the fraction, with the locale's separators (the
 * first byte of each): 1234567 with 2 decimals is 12,345.67. `out` holds a terminated text, normally the empty one, and
 * has room behind it for 4 bytes for every 3 digits and 2 more. Returns `out`.
 */
PLOV_API char* xcsf_nls_num_format(const char* digits, uint32_t decimals, char* out);

/* Sorts `count` terminated texts in fields of `width` bytes, byte by byte, not by the locale. Always 0. */
PLOV_API int32_t xcsf_nls_sort(uint32_t count, uint32_t width, void* base);

/* A `time_t` of the console: of 32 bits on its own ABI, whatever size the caller's may be chosen to have. */
typedef long xcsf_time;

/* Date and time of `*time` as the locale writes them, local time; the empty text when `size` bytes do not hold it.
 * Returns `buffer`. */
PLOV_API char* xcsf_nls_time_and_date(uint32_t size, const xcsf_time* time, char* buffer);

/* Time of day, in local time. */
typedef struct XcsfTimeOfDay {
  uint16_t year; /* full year */
  uint8_t month; /* 1 to 12 */
  uint8_t day;   /* 1 to 31 */
  uint8_t hour;
  uint8_t minute;
  uint8_t second;
  uint8_t hundredths;
} XcsfTimeOfDay;
PLOV_STATIC_ASSERT(sizeof(XcsfTimeOfDay) == 8, "the time of day has 8 bytes");

/* The time now. 0, or 2 when it cannot be had. */
PLOV_API int32_t xcsf_get_tod(XcsfTimeOfDay* record);

/*
 * 0 when month, day, hour, minute and second are in range, else 2. A leap second is out of range; year, hundredths and
 * the month's length are not looked at.
 */
PLOV_API int32_t xcsf_tod_check(const XcsfTimeOfDay* record);

PLOV_END_DECLS

#endif
