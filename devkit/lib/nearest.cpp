// Slips of the keys; see nearest.h.
#include "nearest.h"

#include <algorithm>
#include <cctype>
#include <numeric>

namespace {

std::string Lower(std::string_view text) {
  std::string lower(text);
  for (char &c : lower) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
  return lower;
}

/* How many letters have to come, go or change to make one of the other. */
size_t Distance(std::string_view a, std::string_view b) {
  std::vector<size_t> row(b.size() + 1); /* of the part of `a` so far, to each part of `b` */
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < a.size(); ++i) {
    size_t diagonal = row[0]++;
    for (size_t j = 0; j < b.size(); ++j) {
      const size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
    }
  }
  return row.back();
}

}  // namespace

std::string Nearest(std::string_view word, const std::vector<std::string> &names) {
  constexpr size_t kLongest = 64, kShortest = 3; /* words that are worth a guess */
  if (word.size() < kShortest || word.size() > kLongest) return "";
  const std::string wanted = Lower(word);
  std::string nearest, having;
  size_t least = word.size() / 3 + 1;
  for (const std::string &name : names) {
    const std::string lower = Lower(name);
    const size_t distance = Distance(wanted, lower);
    if (distance < least) nearest = name, least = distance;
    if (having.empty() && lower.find(wanted) != lower.npos) having = name;
  }
  return nearest.empty() ? having : nearest;
}
