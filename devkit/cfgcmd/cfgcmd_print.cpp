// Texts that the client prints; see cfgcmd_print.h.
#include "cfgcmd_print.h"

#include <unistd.h>

#include <cstring>
#include <string_view>

#include "escape.h"
#include "leaf_list.h"

namespace {

/* Takes the last ` name="value"` off the part; false when there is none. */
bool TakeAttribute(std::string_view *part, std::string *name, std::string *value) {
  if (part->empty() || part->back() != '"') return false;
  size_t quote = part->rfind("=\"", part->size() - 2);
  if (quote == std::string_view::npos) return false;
  size_t blank = part->rfind(' ', quote);
  if (blank == std::string_view::npos) return false;
  *name = part->substr(blank + 1, quote - blank - 1);
  *value = part->substr(quote + 2, part->size() - quote - 3);
  *part = part->substr(0, blank);
  return true;
}

/* Of a value with its attributes behind it. */
Json WithAttributes(std::string_view value) {
  std::vector<std::pair<std::string, std::string>> found; /* from the last to the first */
  std::string name, text;
  while (TakeAttribute(&value, &name, &text)) found.emplace_back(name, text);
  Json attributes = Json::object();
  for (auto it = found.rbegin(); it != found.rend(); ++it) attributes[it->first] = it->second;
  return {{"value", std::string(value)}, {"attributes", attributes}};
}

std::string LinesText(const std::string &path, std::string_view text) {
  std::string lines;
  lines.reserve(2 * text.size());
  for (Leaf leaf; NextLeaf(&text, &leaf);) {
    lines.append(path).append(".").append(leaf.name);
    lines.append(leaf.has_value ? "=" : "").append(leaf.value).append("\n");
  }
  return lines;
}

std::string Compact(const Json &json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

/* An object whose members `member(name, value)` writes, each with its line's indent: the library's
   ordered objects look through all that they have for each that comes. */
template <typename Member>
std::string ObjectText(const std::string &path, std::string_view text, Member member) {
  std::string object;
  object.reserve(2 * text.size());
  for (Leaf leaf; NextLeaf(&text, &leaf);) {
    object += object.empty() ? "{\n" : ",\n";
    object += member(path + "." + std::string(leaf.name), leaf.value);
  }
  return object.empty() ? JsonText(Json::object()) : object + "\n}\n";
}

std::string StringMember(const std::string &name, std::string_view value) {
  return "  " + Compact(name) + ": " + Compact(std::string(value));
}

std::string AttributesMember(const std::string &name, std::string_view value) {
  const std::string object = JsonText({{name, WithAttributes(value)}});
  return object.substr(2, object.size() - strlen("{\n\n}\n")); /* without the braces' lines */
}

}  // namespace

std::string JsonText(const Json &json) {
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string NodeText(const std::string &path, const std::string &text, bool json) {
  if (!json) return LinesText(path, text);
  return ObjectText(path, text, StringMember);
}

std::string AttributeText(const std::string &path, const std::string &text, bool json) {
  return json ? ObjectText(path, text, AttributesMember) : LinesText(path, text);
}

std::string TerminalText(std::string text, int descriptor) {
  return isatty(descriptor) == 1 ? Printable(text) : std::move(text);
}
