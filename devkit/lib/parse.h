// Numbers and bytes that people write.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "hex.h"

/* A decimal number that is all of `text`, within bounds: no blank, no "+", and a "-" only where
   they have negative ones. */
bool ParseDecimal(std::string_view text, int64_t least, int64_t most, int64_t *number);

/* The same, or with "0x" a hexadecimal one. */
bool ParseNumber(std::string_view text, int64_t least, int64_t most, int64_t *number);

/* A decimal number, with a fraction or not, that is all of `text`. */
bool ParseFraction(std::string_view text, double least, double most, double *number);

/* Two hexadecimal digits of either case a byte. False: something else; `bytes` is untouched. */
bool BytesFromHex(std::string_view hex, std::string *bytes);

std::string HexFromBytes(std::string_view bytes, const char *digits = kHexUpper);
