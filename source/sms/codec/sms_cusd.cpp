// Answers to USSD commands; see sms_cusd.h.
#include "sms_cusd.h"

#include <algorithm>
#include <cstdlib>

#include "sms_text.h"

namespace {

constexpr size_t kAnswerMax = 4096;

enum Coding { CODING_PLAIN, CODING_7BIT, CODING_8BIT, CODING_UCS2 };

/* Of the data codings, as modems give them. */
Coding CodingOf(int dcs) {
  int low = dcs & 0x0f;
  if (dcs == 17 || (low >= 8 && low <= 11)) return CODING_UCS2;
  if (dcs == 1) return CODING_PLAIN;
  if (dcs == 15 || (low >= 1 && low <= 3)) return CODING_7BIT;
  return low >= 4 && low <= 7 ? CODING_8BIT : CODING_PLAIN;
}

std::string Decode(const std::string &digits, int dcs) {
  uint8_t bytes[kAnswerMax / 2];
  char text[2 * kAnswerMax] =
      ""; /* a unit's 4 digits become 3 bytes at most, 14 digits 8 septets */
  Coding coding = CodingOf(dcs);
  if (coding == CODING_PLAIN) return digits;
  size_t length = static_cast<size_t>(HexToBytes(digits.c_str(), bytes, digits.size()));
  if (coding == CODING_8BIT) return std::string(reinterpret_cast<char *>(bytes), length);
  if (coding == CODING_UCS2)
    Ucs2ToUtf8(bytes, text, length);
  else
    Decode7bit(bytes, text, length, length * 8 / 7);
  return text;
}

}  // namespace

std::string CusdText(std::string answer) {
  answer.resize(std::min(answer.size(), kAnswerMax));
  size_t start = answer.find('"');
  size_t end = start == answer.npos ? start : answer.find("\",", start + 1);
  if (end == answer.npos) return "";
  return Decode(answer.substr(start + 1, end - start - 1), atoi(answer.c_str() + end + 2));
}
