// Files of settings taken apart and put together; see flash_form.h.
#include "flash_form.h"

#include <algorithm>
#include <array>
#include <cstdlib>

namespace {

constexpr size_t kWholeHeadSize = sizeof "nvram 1, area 1, 0123456789 bytes\n" - 1;
constexpr size_t kPartHeadSize = sizeof "change 0123456789 bytes\n" - 1;
constexpr size_t kSizeFromEnd = sizeof "0123456789 bytes\n" - 1; /* of either head */

/* As "%010zu bytes" has it, which each commit would pay for. */
std::string SizeText(size_t size) {
  const std::string digits = std::to_string(size);
  return std::string(10 - std::min<size_t>(digits.size(), 10), '0') + digits + " bytes\n";
}

std::string WholeHead(int area, size_t size) {
  return "nvram 1, area " + std::to_string(area) + ", " + SizeText(size);
}

std::string PartHead(size_t size) { return "change " + SizeText(size); }

/* The length that a head of `head_size` bytes says, whatever else stands there. */
size_t SizeInHead(std::string_view bytes, size_t head_size) {
  if (bytes.size() < head_size) return 0;
  return strtoul(std::string(bytes.substr(head_size - kSizeFromEnd, 10)).c_str(), nullptr, 10);
}

constexpr std::array<uint32_t, 256> CrcTable() {
  std::array<uint32_t, 256> table = {};
  for (uint32_t byte = 0; byte < 256; ++byte) {
    table[byte] = byte;
    for (int bit = 0; bit < 8; ++bit)
      table[byte] = table[byte] >> 1 ^ (table[byte] & 1 ? 0xedb88320u : 0);
  }
  return table;
}

/* The CRC-32 of some bytes, whose own is `sum`, and these behind them. */
uint32_t Crc(uint32_t sum, std::string_view bytes) {
  static constexpr std::array<uint32_t, 256> kTable = CrcTable();
  uint32_t crc = ~sum;
  for (char byte : bytes) crc = kTable[(crc ^ static_cast<uint8_t>(byte)) & 0xff] ^ crc >> 8;
  return ~crc;
}

/* Of a file that ends at `end` and has these bytes behind it. */
uint32_t SumBehind(const FlashEnd &end, std::string_view bytes) {
  return Crc(end.size == 0 ? 0 : Crc(end.sum, FlashTail(end.sum)), bytes);
}

bool Next(std::string_view *rest, size_t most, std::string_view *key, std::string_view *value) {
  size_t key_end = rest->find('\0');
  size_t value_end = key_end < rest->size() ? rest->find('\0', key_end + 1) : rest->npos;
  if (value_end == rest->npos) return false;
  *key = rest->substr(0, key_end);
  *value = rest->substr(key_end + 1, value_end - key_end - 1);
  rest->remove_prefix(value_end + 1);
  return !key->empty() && key->size() <= NVRAM_KEY_MAX && value->size() <= most;
}

bool NextChange(std::string_view *rest, std::string_view *key, std::string_view *value) {
  return Next(rest, NVRAM_VALUE_MAX + 1, key, value) && (value->empty() || value->front() == '=');
}

size_t BytesOf(std::string_view key, std::string_view value) {
  return key.size() + value.size() + 2;
}

void Unset(FlashContent *file, std::string_view key) {
  auto at = file->settings.find(key);
  if (at == file->settings.end()) return;
  file->end.settings -= BytesOf(key, at->second);
  file->settings.erase(at);
}

/* The settings of a file come in order. */
void Set(FlashContent *file, std::string_view key, std::string_view value) {
  const size_t before = file->settings.size();
  auto at = file->settings.emplace_hint(file->settings.end(), key, value);
  if (file->settings.size() == before) {
    file->end.settings -= BytesOf(key, at->second);
    at->second = value;
  }
  file->end.settings += BytesOf(key, value);
}

using TakeRecord = bool (*)(std::string_view *rest, FlashContent *file);

bool TakeSetting(std::string_view *rest, FlashContent *file) {
  std::string_view key, value;
  if (!FlashNext(rest, &key, &value)) return false;
  if (file != nullptr) Set(file, key, value);
  return true;
}

bool TakeChange(std::string_view *rest, FlashContent *file) {
  std::string_view key, value;
  if (!NextChange(rest, &key, &value)) return false;
  if (file != nullptr && value.empty()) Unset(file, key);
  if (file != nullptr && !value.empty()) Set(file, key, value.substr(1));
  return true;
}

/* Takes a part, of the length that its head says, if all of it is right; or says what is wrong. */
bool TakePart(std::string_view part, size_t head_size, TakeRecord take, FlashContent *file) {
  const size_t tail = part.size() - kFlashTailSize;
  const uint32_t sum = SumBehind(file->end, part.substr(0, tail));
  const std::string_view records = part.substr(head_size, tail - head_size);
  if (part.substr(tail) != FlashTail(sum)) return file->wrong = "its checksum is wrong", false;
  for (FlashContent *to : {static_cast<FlashContent *>(nullptr), file}) /* all of it or nothing */
    for (std::string_view rest = records; !rest.empty();)
      if (!take(&rest, to)) return file->wrong = "one of its records is longer than may be", false;
  file->end.size += part.size();
  file->end.sum = sum;
  return true;
}

bool TakeWhole(int area, std::string_view bytes, FlashContent *file) {
  const size_t size = SizeInHead(bytes, kWholeHeadSize);
  if (bytes.size() < std::max(size, kWholeHeadSize + kFlashTailSize))
    return file->wrong = "it is cut", false;
  if (size < kWholeHeadSize + kFlashTailSize ||
      bytes.substr(0, kWholeHeadSize) != WholeHead(area, size))
    return file->wrong = "its head is not that of this area", false;
  file->first = size;
  return TakePart(bytes.substr(0, size), kWholeHeadSize, TakeSetting, file);
}

/* Takes the change at the start of `rest`, and is true; or says what is wrong. */
bool TakeNext(std::string_view rest, FlashContent *file) {
  const size_t size = SizeInHead(rest, kPartHeadSize);
  if (size >= kPartHeadSize + kFlashTailSize && size <= rest.size() &&
      rest.substr(0, kPartHeadSize) == PartHead(size))
    return TakePart(rest.substr(0, size), kPartHeadSize, TakeChange, file);
  return file->wrong = "no change begins where one should", false;
}

/* Whether these bytes, in which no sound change begins, may be the start of one that was written
   when the power went. Some file systems then leave zeroes in the place of what was not. */
bool IsCut(std::string_view rest) {
  size_t written = rest.find_last_not_of('\0');
  rest = rest.substr(0, written == rest.npos ? 0 : written + 1);
  const size_t size = SizeInHead(rest, kPartHeadSize);
  const std::string head = PartHead(size);
  if (rest.size() >= kPartHeadSize)
    return rest.substr(0, kPartHeadSize) == head && rest.size() < size;
  const size_t name = std::min(rest.size(), kPartHeadSize - kSizeFromEnd);
  return rest.substr(0, name) == head.substr(0, name);
}

}  // namespace

FlashContent FlashParse(int area, std::string_view bytes) {
  FlashContent file = {};
  if (!TakeWhole(area, bytes, &file)) {
    file.state = FLASH_DAMAGED;
    return file;
  }
  while (file.end.size < bytes.size()) {
    std::string_view rest = bytes.substr(file.end.size);
    if (TakeNext(rest, &file)) continue;
    file.state = IsCut(rest) ? FLASH_CUT : FLASH_GARBLED;
    break;
  }
  return file;
}

bool FlashNext(std::string_view *rest, std::string_view *key, std::string_view *value) {
  return Next(rest, NVRAM_VALUE_MAX, key, value);
}

std::string FlashWhole(int area, std::string_view settings, FlashEnd *end) {
  std::string bytes = WholeHead(area, kWholeHeadSize + settings.size() + kFlashTailSize);
  bytes += settings;
  const uint32_t sum = Crc(0, bytes);
  bytes += FlashTail(sum);
  *end = {bytes.size(), settings.size(), sum};
  return bytes;
}

std::string FlashPart(std::string_view changes, FlashEnd *end) {
  std::string bytes = PartHead(kPartHeadSize + changes.size() + kFlashTailSize);
  bytes += changes;
  end->sum = SumBehind(*end, bytes);
  bytes += FlashTail(end->sum);
  end->size += bytes.size();
  return bytes;
}

std::string FlashTail(uint32_t sum) {
  std::string text(kFlashTailSize, '\n');
  for (size_t at = kFlashTailSize - 1; at-- > 0; sum >>= 4) text[at] = "0123456789abcdef"[sum & 15];
  return text;
}
