// What the tests of the desk's settings share: calls as conditions, and what flash should hold,
// made by hand.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "nvram_calls.h"

inline bool Is(const char *key, const std::string &value) { return Get(key) == value; }
inline bool Set(const std::string &key, const std::string &value) {
  return nvram_set(key.c_str(), value.c_str(), NVTYPE_STAGING) == 0;
}
inline bool Commit() { return nvram_commit(NVTYPE_STAGING) == 0; }

/* The working copy is lost; and flash, too. */
inline void PowerCut() { std::filesystem::remove_all("/dev/shm/nvram"); }
inline void NewBoard() {
  PowerCut();
  for (const auto &entry : std::filesystem::directory_iterator("/var/nvram"))
    std::filesystem::remove_all(entry.path());
}

inline std::string WithSum(std::string bytes) {
  uint32_t crc = ~0u;
  for (char byte : bytes) {
    crc ^= static_cast<uint8_t>(byte);
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (crc & 1 ? 0xEDB88320 : 0);
  }
  char sum[16];
  snprintf(sum, sizeof sum, "%08x\n", ~crc);
  return bytes + sum;
}

inline std::string WithHead(int area, const std::string &records) {
  char head[64];
  snprintf(head, sizeof head, "nvram 1, area %d, %010zu bytes\n", area, 34 + records.size() + 9);
  return WithSum(head + records);
}

inline std::string FlashFile(int area, const Settings &settings) {
  std::string records;
  for (const auto &one : settings) records += one.first + '\0' + one.second + '\0';
  return WithHead(area, records);
}

/* A file with a commit more: each change is a key, then "=" and its value, or nothing. */
inline std::string WithChanges(const std::string &file, const Settings &changes) {
  std::string records;
  char head[64];
  for (const auto &one : changes) records += one.first + '\0' + one.second + '\0';
  snprintf(head, sizeof head, "change %010zu bytes\n", 24 + records.size() + 9);
  return WithSum(file + head + records);
}

inline std::string FileBytes(const std::string &name) {
  std::ifstream file("/var/nvram/" + name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/* The settings that an area's file holds, read by hand; each checksum must be right. */
inline Settings OnFlash(int area) {
  const std::string bytes = FileBytes("area" + std::to_string(area));
  Settings settings;
  for (size_t at = 0, size = 0; at < bytes.size(); at += size) {
    const size_t digits = at == 0 ? 17 : 7, head = digits + 17;
    size = std::stoul(bytes.substr(at + digits, 10));
    const size_t end = at + size - 9;
    EXPECT_EQ(bytes.substr(0, at + size), WithSum(bytes.substr(0, end)));
    for (size_t from = at + head; from < end;) {
      const std::string key = bytes.c_str() + from, value = bytes.c_str() + from + key.size() + 1;
      from += key.size() + value.size() + 2;
      if (at == 0 || !value.empty())
        settings[key] = at == 0 ? value : value.substr(1);
      else
        settings.erase(key);
    }
  }
  return settings;
}

inline void WriteBytes(const std::string &name, const std::string &bytes) {
  std::ofstream("/var/nvram/" + name, std::ios::binary) << bytes;
}
