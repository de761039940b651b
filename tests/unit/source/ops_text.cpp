// Texts of the case files; see ops_text.h.
#include "ops_text.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <sstream>

std::string NativeWord(const std::string &number) {
  const auto value = static_cast<int32_t>(std::stoll(number));
  return {reinterpret_cast<const char *>(&value), sizeof value};
}

std::string Expanded(const std::string &text) {
  std::string all;
  for (size_t at = 0; at < text.size(); ++at) {
    const size_t end = text[at] == '{' ? text.find('}', at) : text.npos;
    const size_t star = end == text.npos ? end : text.rfind('*', end);
    if (star != text.npos && star > at && isdigit(text[star + 1]) != 0) {
      for (int count = atoi(text.c_str() + star + 1); count > 0; --count)
        all += Expanded(text.substr(at + 1, star - at - 1));
      at = end;
    } else if (text.compare(at, 2, "\\n") == 0) {
      all += '\n';
      ++at;
    } else if (text.compare(at, 2, "\\x") == 0) {
      all += static_cast<char>(std::stoi(text.substr(at + 2, 2), nullptr, 16));
      at += 3;
    } else if (text.compare(at, 2, "\\w") == 0) {
      const size_t stop = std::min(text.find(';', at), text.size());
      all += NativeWord(text.substr(at + 2, stop - at - 2));
      at = stop;
    } else {
      all += text[at];
    }
  }
  return all;
}

std::string Word(std::string *line) {
  const size_t blank = std::min(line->find(' '), line->size());
  const std::string word = line->substr(0, blank);
  line->erase(0, blank + 1);
  return word;
}

Lines Split(const std::string &text, char separator) {
  Lines parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
  return parts;
}

std::vector<Record> Records(std::string log) {
  std::vector<Record> records;
  while (!log.empty()) {
    const size_t head = log.find(' ', 24), mark = log.find("  @P:");
    const bool record = log[0] == '2' && head != log.npos && mark != log.npos;
    const size_t end = std::min(log.find('\n', record ? mark : 0), log.size() - 1) + 1;
    const std::string place = record ? log.substr(mark + 5, end - mark - 5) : "";
    if (!record) records.push_back({0, log.substr(0, end), ""});
    if (record)
      records.push_back({log[head + 1] - '0', log.substr(head + 3, mark - head - 3),
                         place.substr(0, place.find(','))});
    log.erase(0, end);
  }
  return records;
}

bool Fits(const std::string &expected, const std::string &text) {
  size_t from = 0, at = 0;
  for (size_t dots; (dots = expected.find("...", from)) != expected.npos; from = dots + 3) {
    const std::string piece = expected.substr(from, dots - from);
    at = text.find(piece, at);
    if (at == text.npos || (from == 0 && at != 0)) return false;
    at += piece.size();
  }
  const size_t tail = expected.size() - from;
  return from == 0 ? expected == text
                   : text.size() >= at + tail &&
                         text.compare(text.size() - tail, tail, expected, from, tail) == 0;
}
