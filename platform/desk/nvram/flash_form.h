// The form of an area's file on flash. Pure: bytes in, settings out.
//
// The file begins with the settings as they were when it was written: a line that names the area
// and this part's length, the settings, a line with a checksum. Behind it stands a part for each
// commit since: a line with its length, the changes, a checksum. Each checksum is the CRC-32 (that
// of gzip) of all before it in the file, in hexadecimal digits.
//
// A setting is "KEY\0VALUE\0"; a change is "KEY\0=VALUE\0", or "KEY\0\0" for a key that is unset.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "nvram.h"

constexpr size_t kFlashMax = 32 << 20; /* bytes of all settings; a working copy has room for two */
constexpr size_t kFlashFileMax = 5 * kFlashMax; /* a file is written anew long before */

/* How a file ends; all zero: there is none, or none to add to. */
struct FlashEnd {
  size_t size;      // bytes of the file
  size_t settings;  // bytes of its settings
  uint32_t sum;     // its last checksum
};

enum FlashState {
  FLASH_SOUND,
  FLASH_CUT,     /* ends in a change that was not written to its end */
  FLASH_GARBLED, /* a change is damaged: it and those behind it are lost */
  FLASH_DAMAGED, /* the first part is: all is lost */
};

/* The settings of a file, which point into its bytes, and its end, as far as it is sound. */
struct FlashContent {
  FlashState state;
  std::string wrong;  // for people
  size_t first;       // bytes of its first part
  std::map<std::string_view, std::string_view> settings;
  FlashEnd end;
};

/* Takes the bytes of a file apart, whatever they are. */
FlashContent FlashParse(int area, std::string_view bytes);

/* Takes the first setting off `rest`; false when it is not whole or not within the limits. */
bool FlashNext(std::string_view *rest, std::string_view *key, std::string_view *value);

/* The bytes of a file with these settings; `end` is how it ends. */
std::string FlashWhole(int area, std::string_view settings, FlashEnd *end);

/* The bytes to add to a file that ends at `end`, for these changes; `end` is how it ends then, save
   for the bytes of its settings. */
std::string FlashPart(std::string_view changes, FlashEnd *end);

/* The line with a checksum. */
constexpr size_t kFlashTailSize = sizeof "01234567\n" - 1;
std::string FlashTail(uint32_t sum);
