// Character work of short messages: hexadecimal text, semi-octet digits, the GSM 7-bit alphabet,
// UCS2 and UTF-8, time stamps. Records and PDUs are in sms_pdu.h.
//
// Pure functions for any thread: no heap, no log, no state. Every text they write is terminated.
// What does not fit is cut behind the last whole character, and the result says what was written.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "hex.h"

/* Where a function writes: an array, or {place, size}. */
template <typename T>
struct Span {
  Span(T *place, size_t count) : at(place), size(count) {}
  template <size_t N>
  Span(T (&array)[N]) : at(array), size(N) {}
  T *at;
  size_t size;
};

/* ---- hexadecimal text ---- */

/* Whether `text` has no other characters than digits; "" has none. */
bool IsHex(std::string_view text);

/* Two upper-case digits for each of `n` bytes. How many digits were written. */
int BytesToHex(const uint8_t *bytes, Span<char> text, size_t n);

/* The bytes of the first `n` characters, two a byte; an odd last one is left out, a character that
   is no digit counts as 0. How many bytes were written. */
int HexToBytes(const char *text, Span<uint8_t> bytes, size_t n);

/* The bytes of the digits that `text` begins with, two a byte. How many bytes were written. */
int HexRunToBytes(const char *text, Span<uint8_t> bytes);

/* ---- numbers ---- */

/* Whether `text` is 1 to `most` digits, with one "+" before them where `plus`. What is not must not
   reach a command line or a PDU. */
bool IsNumber(std::string_view text, bool plus, size_t most = SIZE_MAX);

/* Swaps the `n` digits pair by pair, as semi-octets stand in a PDU; an odd last digit gets an "F"
   for its partner: "12345" becomes "2143F5". How many characters were written: n rounded up to
   even. */
int InvertNumbers(const char *digits, Span<char> text, size_t n);

/* ---- GSM 7-bit default alphabet (3GPP TS 23.038) ---- */

/* How many septets a character takes: 2 when an escape comes first. */
int GsmSeptets(char character);

/* Packs the first `n` characters of `text` into septets, eight in seven bytes; `escapes` gets how
   many septets more than characters there are. How many bytes were written. The bits left over
   behind the last septet are written only by a septet that follows, so a caller passes the length
   of its text plus one: the terminating NUL is the last septet, and is never seen whole. */
int Encode7bit(const char *text, Span<uint8_t> bytes, size_t n, int *escapes);

/* The characters of `n` packed bytes, without those of the first `skip` septets, which may be a
   header's bits; an escape and its code are one. How many were written; `septets` gets how many
   septets there were. `max` stops only the eighth septet of a group of seven bytes, which has no
   byte of its own. */
int Decode7bit(const uint8_t *bytes, Span<char> text, size_t n, size_t max, size_t skip = 0,
               int *septets = nullptr);

/* ---- UCS2 and UTF-8 ---- */

/* One character of a terminated UTF-8 text as a big-endian unit: 1, 2 or 3, the bytes it took. For
   anything else (four bytes, a stray continuation, a sequence that breaks off) the unit is 0xE022
   and the result 0. Whoever walks a text has to go on by himself then, as Utf8ToUcs2 does. */
int Utf8ToUcs2Char(const char *utf8, uint8_t *unit);

/* The units of the first `n` bytes of `text`. A sequence that is no UTF-8 or has four bytes becomes
   one U+FFFD. How many bytes were written: two a unit. */
int Utf8ToUcs2(const char *text, Span<uint8_t> bytes, size_t n);

/* Moves `*at` behind the character there, at most to `end`, and returns its unit as Utf8ToUcs2
   writes it. */
uint16_t Utf8Next(const char **at, const char *end);

/* The UTF-8 of a unit: 1 to 3 bytes in `utf8`, not terminated. How many. */
int Ucs2ToUtf8Char(uint16_t unit, char *utf8);

/* The UTF-8 of `n` bytes of big-endian units; an odd last byte is left out. How many bytes were
   written. */
int Ucs2ToUtf8(const uint8_t *bytes, Span<char> text, size_t n);

/* The alphabet that `n` bytes of UTF-8 need: 0 GSM 7-bit, 8 UCS2. Text that is no UTF-8 needs UCS2,
   since it is sent as U+FFFD. */
int TextDcs(const char *text, size_t n);

/* ---- time stamps ---- */

/* "YYMMDDhhmmss.." as "20YY-MM-DD hh:mm:ss". 0; -1, nothing written, when fewer than 20 bytes fit.
 */
int FormatScts(const char *digits, Span<char> text);
