// Forms of values; see dbmgr_forms.h.
#include "dbmgr_forms.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "parse.h"

namespace {

template <typename Number>
bool IsNumber(std::string_view value) {
  using Limits = std::numeric_limits<Number>;
  int64_t number;
  return ParseDecimal(value, Limits::min(), Limits::max(), &number);
}

bool IsSwitch(std::string_view value) { return value == "0" || value == "1"; }

/* Of parameters that reach no shell line. NULL: anything. */
struct Type {
  const char *name;
  bool (*takes)(std::string_view value);
  const char *says;
};

const Type kTypes[] = {
    {"string", nullptr, ""},
    {"dateTime", nullptr, ""},
    {"boolean", IsSwitch, "0 or 1"},
    {"unsignedInt", IsNumber<uint32_t>, "a number up to 4294967295"},
    {"int", IsNumber<int32_t>, "a number from -2147483648 to 2147483647"},
};

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

/* What iptables takes as a list of ports: more of them, an empty one or a larger one make it refuse
   the rule that closes the service. 0 is the SSH server's way to say 22. */
bool IsPortList(std::string_view value) {
  constexpr int kMostPorts = 15;
  if (value.empty() || value.back() == ',') return false;
  int count = 0;
  for (; !value.empty(); ++count) {
    std::string_view piece = NextPiece(&value, ',');
    if (piece.size() > 5 || !IsNumber<uint16_t>(piece)) return false;
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
    {"port", false, "", nullptr, IsNumber<uint16_t>, "a number up to 65535"},
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

int Refuse(std::string *why, const std::string &text) {
  *why = text + " (dbmgr --trust-values takes anything)";
  return -1;
}

}  // namespace

bool trust_values = false;

int CheckForm(const std::string &path, const std::string &name, std::string_view value,
              std::string *why) {
  if (trust_values) return 0;
  for (const Type &type : kTypes) {
    if (name != type.name) continue;
    if (type.takes == nullptr || type.takes(value)) return 0;
    return Refuse(why, "\"" + path + "\" is of type " + name + ": " + type.says);
  }
  const Form *form = FindForm(name);
  if (form != nullptr && Fits(*form, value)) return 0;
  return Refuse(why,
                "\"" + path + "\" goes into a shell line, so it has the form \"" + name +
                    "\": " + (form != nullptr ? form->says : "a form that dbmgr does not know"));
}
