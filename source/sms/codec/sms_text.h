// Character work of short messages: hexadecimal text, semi-octet digits, the GSM 7-bit alphabet,
// UCS2 and UTF-8, time stamps. Records and PDUs are in sms_pdu.h.
//
// Pure functions for any thread: no heap, no log, no state. Every text they write is terminated.
// What does not fit the buffer is cut behind the last whole character, and the result says what was
// written. Array arguments bring their size along; the forms with `size` are for other buffers.
#pragma once

#include <cstddef>
#include <cstdint>

/* ---- hexadecimal text ---- */

/* The value of a hexadecimal digit of either case, else -1. */
int HexValue(char digit);

/* Two upper-case digits for each of `n` bytes. How many digits were written. */
int BytesToHex(const uint8_t *bytes, char *text, size_t size, size_t n);

/* The bytes of the first `n` characters, two a byte; an odd last one is left out, a character that
   is no digit counts as 0. How many bytes were written. */
int HexToBytes(const char *text, uint8_t *bytes, size_t size, size_t n);

/* The bytes of the digits that `text` begins with, two a byte. How many bytes were written. */
int HexRunToBytes(const char *text, uint8_t *bytes, size_t size);

/* ---- numbers ---- */

/* Swaps the `n` digits pair by pair, as semi-octets stand in a PDU; an odd last digit gets an "F"
   for its partner: "12345" becomes "2143F5". How many characters were written: n rounded up to
   even. */
int InvertNumbers(const char *digits, char *text, size_t size, size_t n);

/* ---- GSM 7-bit default alphabet (3GPP TS 23.038) ---- */

constexpr uint8_t kGsmEscape = 0x1B;

/* A septet and the ASCII character it stands for, when the two differ. Only these are mapped, in
   both directions; every other character passes unchanged. That is on purpose: the positions where
   the alphabet is ASCII are trusted, its national letters and the euro sign are not translated. */
struct GsmAsciiPair {
  uint8_t gsm;
  char ascii;
};

/* The first three are of the default alphabet, the others follow an escape. */
inline constexpr GsmAsciiPair GsmAsciiMap[] = {
    {0x00, '@'},  {0x02, '$'}, {0x11, '_'}, {0x14, '^'}, {0x28, '{'}, {0x29, '}'},
    {0x2F, '\\'}, {0x3C, '['}, {0x3D, '~'}, {0x3E, ']'}, {0x40, '|'},
};

/* How many septets a character takes: 2 when an escape comes first. */
int GsmSeptets(char character);

/* Packs the first `n` characters of `text` into septets, eight in seven bytes; `escapes` gets how
   many septets more than characters there are. How many bytes were written. The bits left over
   behind the last septet are written only by a septet that follows, so a caller passes the length
   of its text plus one: the terminating NUL is the last septet, and is never seen whole. */
int Encode7bit(const char *text, uint8_t *bytes, size_t size, size_t n, int *escapes);

/* The characters of `n` packed bytes; an escape and its code are one. How many were written.
   `max` stops only the eighth septet of a group of seven bytes, which has no byte of its own. */
int Decode7bit(const uint8_t *bytes, char *text, size_t size, size_t n, size_t max);

/* The same without the characters of the first `skip` septets, which may be a header's bits.
   `septets` gets how many there were, those included. */
int Decode7bitFrom(const uint8_t *bytes, char *text, size_t size, size_t n, size_t max, size_t skip,
                   int *septets);

/* ---- UCS2 and UTF-8 ---- */

/* One character of a terminated UTF-8 text as a big-endian unit: 1, 2 or 3, the bytes it took. For
   anything else (four bytes, a stray continuation, a sequence that breaks off) the unit is 0xE022
   and the result 0. Whoever walks a text has to go on by himself then, as Utf8ToUcs2 does. */
int Utf8ToUcs2Char(const char *utf8, uint8_t *unit);

/* The units of the first `n` bytes of `text`. A sequence that is no UTF-8 or has four bytes becomes
   one U+FFFD. How many bytes were written: two a unit. */
int Utf8ToUcs2(const char *text, uint8_t *bytes, size_t size, size_t n);

/* Moves `*at` behind the character there, at most to `end`, and returns its unit as Utf8ToUcs2
   writes it. */
uint16_t Utf8Next(const char **at, const char *end);

/* The UTF-8 of a unit: 1 to 3 bytes in `utf8`, not terminated. How many. */
int Ucs2ToUtf8Char(uint16_t unit, char *utf8);

/* The UTF-8 of `n` bytes of big-endian units; an odd last byte is left out. How many bytes were
   written. */
int Ucs2ToUtf8(const uint8_t *bytes, char *text, size_t size, size_t n);

/* The alphabet that `n` bytes of UTF-8 need: 0 GSM 7-bit, 8 UCS2. Text that is no UTF-8 needs UCS2,
   since it is sent as U+FFFD. */
int TextDcs(const char *text, size_t n);

/* ---- time stamps ---- */

/* "YYMMDDhhmmss.." as "20YY-MM-DD hh:mm:ss". 0; -1, nothing written, when `size` is below 20. */
int FormatScts(const char *digits, char *text, size_t size);

/* ---- sizes of arrays ---- */

template <size_t N>
int BytesToHex(const uint8_t *bytes, char (&text)[N], size_t n) {
  return BytesToHex(bytes, text, N, n);
}
template <size_t N>
int HexToBytes(const char *text, uint8_t (&bytes)[N], size_t n) {
  return HexToBytes(text, bytes, N, n);
}
template <size_t N>
int HexRunToBytes(const char *text, uint8_t (&bytes)[N]) {
  return HexRunToBytes(text, bytes, N);
}
template <size_t N>
int InvertNumbers(const char *digits, char (&text)[N], size_t n) {
  return InvertNumbers(digits, text, N, n);
}
template <size_t N>
int Encode7bit(const char *text, uint8_t (&bytes)[N], size_t n, int *escapes) {
  return Encode7bit(text, bytes, N, n, escapes);
}
template <size_t N>
int Decode7bit(const uint8_t *bytes, char (&text)[N], size_t n, size_t max) {
  return Decode7bit(bytes, text, N, n, max);
}
template <size_t N>
int Utf8ToUcs2(const char *text, uint8_t (&bytes)[N], size_t n) {
  return Utf8ToUcs2(text, bytes, N, n);
}
template <size_t N>
int Ucs2ToUtf8(const uint8_t *bytes, char (&text)[N], size_t n) {
  return Ucs2ToUtf8(bytes, text, N, n);
}
template <size_t N>
int FormatScts(const char *digits, char (&text)[N]) {
  return FormatScts(digits, text, N);
}
