// Types, ranges, lists and forms of values; see dbmgr_forms.h.
#include "dbmgr_forms.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "ams_store.h"
#include "escape.h"
#include "parse.h"

namespace {

/* ---- types ---- */

struct Range {
  int64_t least, most;
};

const Range kInt = {INT32_MIN, INT32_MAX}, kUnsignedInt = {0, UINT32_MAX}, kPort = {0, UINT16_MAX};
const Range kSize = {0, AMS_VALUE_MAX};

bool IsIn(const Range &range, std::string_view value) {
  int64_t number;
  return ParseDecimal(value, range.least, range.most, &number);
}

/* What the leaf's own bounds, which the loader has checked, leave of its type's. */
Range Narrowed(Range range, const AmsDeskLeaf &leaf) {
  (void)ParseDecimal(leaf.min, range.least, range.most, &range.least); /* it may have none */
  (void)ParseDecimal(leaf.max, range.least, range.most, &range.most);
  return range;
}

std::string CheckNumber(const AmsDeskLeaf &leaf, const Range &of_type, std::string_view value) {
  const Range range = Narrowed(of_type, leaf);
  if (IsIn(range, value)) return "";
  return "a number from " + std::to_string(range.least) + " to " + std::to_string(range.most);
}

std::string CheckInt(const AmsDeskLeaf &leaf, std::string *value) {
  return CheckNumber(leaf, kInt, *value);
}

std::string CheckUnsignedInt(const AmsDeskLeaf &leaf, std::string *value) {
  return CheckNumber(leaf, kUnsignedInt, *value);
}

std::string CheckString(const AmsDeskLeaf &leaf, std::string *value) {
  const Range size = Narrowed(kSize, leaf);
  if (IsIn(size, std::to_string(value->size()))) return "";
  return "at most " + std::to_string(size.most) + " bytes, it has " + std::to_string(value->size());
}

/* Whoever reads a switch knows the digits alone. */
std::string CheckBoolean(const AmsDeskLeaf &, std::string *value) {
  if (*value == "true") *value = "1";
  if (*value == "false") *value = "0";
  return *value == "0" || *value == "1" ? "" : "0, 1, true or false";
}

/* Takes a number of exactly `digits` digits off the text, and what has to stand in front of it. */
bool TakeDigits(std::string_view *text, const char *before, size_t digits, const Range &range,
                int *number) {
  int64_t found;
  const std::string_view mark = before;
  if (text->substr(0, mark.size()) != mark) return false;
  const std::string_view piece = text->substr(mark.size(), digits);
  if (piece.size() < digits || !ParseDecimal(piece, range.least, range.most, &found)) return false;
  *number = static_cast<int>(found);
  text->remove_prefix(mark.size() + digits);
  return true;
}

int DaysOf(int year, int month) {
  if (month == 2) return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0 ? 29 : 28;
  return month == 4 || month == 6 || month == 9 || month == 11 ? 30 : 31;
}

/* 2026-11-24T21:35:21, with a fraction or not, and where the clock stands or not: Z or +01:00. */
bool IsTime(std::string_view text) {
  int year, month, day, other;
  const bool known =
      TakeDigits(&text, "", 4, {1, 9999}, &year) && TakeDigits(&text, "-", 2, {1, 12}, &month) &&
      TakeDigits(&text, "-", 2, {1, DaysOf(year, month)}, &day) &&
      TakeDigits(&text, "T", 2, {0, 23}, &other) && TakeDigits(&text, ":", 2, {0, 59}, &other) &&
      TakeDigits(&text, ":", 2, {0, 59}, &other);
  if (!known) return false;
  if (!text.empty() && text[0] == '.') {
    const size_t end = std::min(text.find_first_not_of("0123456789", 1), text.size());
    if (end == 1) return false;
    text.remove_prefix(end);
  }
  if (text.empty() || text == "Z") return true;
  const char *sign = text[0] == '-' ? "-" : "+";
  return TakeDigits(&text, sign, 2, {0, 14}, &other) &&
         TakeDigits(&text, ":", 2, {0, 59}, &other) && text.empty();
}

std::string CheckTime(const AmsDeskLeaf &, std::string *value) {
  return IsTime(*value) ? "" : "a time such as 2026-11-24T21:35:21Z";
}

/* Each brings a value into the form that the store holds, and says what it should have been, or
   "". */
struct Type {
  const char *name;
  std::string (*check)(const AmsDeskLeaf &leaf, std::string *value);
};

const Type kTypes[] = {
    {"string", CheckString}, {"dateTime", CheckTime},           {"boolean", CheckBoolean},
    {"int", CheckInt},       {"unsignedInt", CheckUnsignedInt},
};

/* ---- forms of what reaches a shell line ---- */

/* Which bytes a value may have. None of them means anything to a shell, quoted or not, but the "&"
   of a url: the one line that has urls puts them in single quotes. */
struct Form {
  const char *name;
  bool letters;                          /* A to Z in both cases; digits always */
  const char *others;                    /* and these */
  const char *first;                     /* what the first byte has to be; NULL: not "-" or "." */
  bool (*whole)(std::string_view value); /* what the value has to be beyond that; NULL: anything */
  const char *says;
};

/* Takes the piece before the next `separator` off a text. */
std::string_view NextPiece(std::string_view *text, char separator) {
  std::string_view piece = text->substr(0, text->find(separator));
  text->remove_prefix(std::min(piece.size() + 1, text->size()));
  return piece;
}

bool IsPort(std::string_view value) { return IsIn(kPort, value); }

/* What iptables takes as a list of ports: more of them, an empty one or a larger one make it refuse
   the rule that closes the service. 0 is the SSH server's way to say 22. */
bool IsPortList(std::string_view value) {
  constexpr int kMostPorts = 15;
  if (value.empty() || value.back() == ',') return false;
  int count = 0;
  for (; !value.empty(); ++count) {
    std::string_view piece = NextPiece(&value, ',');
    if (piece.size() > 5 || !IsIn(kPort, piece)) return false;
  }
  return count <= kMostPorts;
}

bool IsAddress(std::string_view text) { return text.find_first_of(".:") != text.npos; }

bool IsRange(std::string_view value) {
  if (value.empty()) return true;
  std::string_view first = NextPiece(&value, '-');
  return IsAddress(first) && IsAddress(value) && value.find('-') == value.npos;
}

/* No folder or file that is hidden, and none beside the folder that it is to be in. */
bool IsPlainPath(std::string_view value) { return value.find("/.") == value.npos; }

const Form kForms[] = {
    {"port", false, "", nullptr, IsPort, "a number up to 65535"},
    {"port list", false, ",", nullptr, IsPortList,
     "1 to 15 numbers up to 65535 with commas between"},
    {"numbers", false, "+,;", nullptr, nullptr, "digits and + , ;"},
    {"service code", true, "*#+", nullptr, nullptr, "letters, digits and * # +"},
    {"path", true, "/._+@-", "/", IsPlainPath,
     "a \"/\" first, then letters, digits and / . _ + @ -, no . behind a /"},
    {"name", true, "._+@-", nullptr, nullptr, "letters, digits and . _ + @ -, no . first"},
    {"text", true, " ._+@,:/-", nullptr, nullptr, "letters, digits, blanks and . _ + @ , : / -"},
    {"address", true, ".:-", nullptr, nullptr, "an address or a host name"},
    {"range", true, ".:-", nullptr, IsRange, "two addresses with a - between"},
    {"interface", true, "._:@-", nullptr, nullptr, "letters, digits and . _ : @ -"},
    {"url", true, "-._~:/?#[]@%+,=&", nullptr, nullptr,
     "letters, digits and - . _ ~ : / ? # [ ] @ % + , = &"},
};

const Form *FindForm(const std::string &name) {
  for (const Form &form : kForms)
    if (name == form.name) return &form;
  return nullptr;
}

bool IsAllowed(const Form &form, char byte) {
  if (byte >= '0' && byte <= '9') return true;
  bool letter = (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z');
  return letter ? form.letters : byte != '\0' && strchr(form.others, byte) != nullptr;
}

bool Fits(const Form &form, std::string_view value) {
  for (char byte : value)
    if (!IsAllowed(form, byte)) return false;
  if (form.whole != nullptr && !form.whole(value)) return false;
  if (value.empty()) return true;
  return form.first == nullptr ? strchr("-.", value[0]) == nullptr : value[0] == form.first[0];
}

std::string CheckForm(const std::string &name, std::string_view value) {
  const Form *form = FindForm(name);
  if (form != nullptr && Fits(*form, value)) return "";
  return "the form \"" + name +
         "\": " + (form != nullptr ? form->says : "one that dbmgr does not know") +
         ", since it goes into a shell line";
}

/* ---- lists ---- */

std::string CheckList(const std::string &values, std::string_view value) {
  std::string says;
  for (std::string_view rest = values; !rest.empty();) {
    const bool last = rest.find(',') == rest.npos;
    const std::string_view one = NextPiece(&rest, ',');
    if (one == value) return "";
    says += (says.empty() ? ""
             : last       ? " or "
                          : ", ") +
            (one.empty() ? "nothing" : std::string(one));
  }
  return says;
}

/* In one line, and not the whole of a long one. */
std::string Shown(const std::string &value) {
  constexpr size_t kMost = 64;
  return "\"" + Escaped(value.substr(0, kMost)) + (value.size() > kMost ? "...\"" : "\"");
}

std::string WhatFits(const AmsDeskLeaf &leaf, std::string *value) {
  std::string fits;
  if (!leaf.check.empty()) fits = CheckForm(leaf.check, *value);
  for (const Type &type : kTypes)
    if (fits.empty() && leaf.type == type.name) fits = type.check(leaf, value);
  if (fits.empty() && !leaf.values.empty()) fits = CheckList(leaf.values, *value);
  return fits;
}

}  // namespace

bool trust_values = false;

int CheckValue(const AmsDeskLeaf &leaf, std::string *value, std::string *why) {
  if (trust_values) return 0;
  const std::string fits = WhatFits(leaf, value);
  if (fits.empty()) return 0;
  *why = "\"" + leaf.path + "\" cannot be " + Shown(*value) + ", it takes " + fits +
         " (dbmgr --trust-values takes anything)";
  return -1;
}
