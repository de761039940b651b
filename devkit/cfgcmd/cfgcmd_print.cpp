// Texts that the client prints; see cfgcmd_print.h.
#include "cfgcmd_print.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "ams_store.h"
#include "cfgcmd_paths.h"
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

std::string Unquoted(std::string text) {
  constexpr std::string_view kQuote = "&quot;";
  for (size_t at = 0; (at = text.find(kQuote, at)) != text.npos; ++at)
    text.replace(at, kQuote.size(), "\"");
  return text;
}

/* Of a value of the leaf `path` with its attributes behind it: each name stands once, and the leaf
   has an attribute of that name. */
Json WithAttributes(const std::string &path, std::string_view value) {
  const bool seen = AttachStore() && ams_check_node(gptXmlTrees->root, path.c_str()) == 0;
  std::vector<std::pair<std::string, std::string>> found; /* from the last to the first */
  std::string name, text;
  auto twice = [&](const auto &pair) { return pair.first == name; };
  for (std::string_view rest = value; TakeAttribute(&rest, &name, &text); value = rest) {
    char of_file[2];
    if (std::any_of(found.begin(), found.end(), twice) ||
        (seen && ams_get_node_attr(gptXmlTrees->root, path.c_str(), name.c_str(), of_file) != 0))
      break;
    found.emplace_back(name, Unquoted(text));
  }
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

/* Members of an object, which `member(name, value)` writes, each with its line's indent: the
   library's ordered objects look through all that they have for each that comes. */
template <typename Member>
std::string MembersText(const std::string &path, std::string_view text, Member member) {
  std::string members;
  members.reserve(2 * text.size());
  for (Leaf leaf; NextLeaf(&text, &leaf);) {
    if (!members.empty()) members += ",\n";
    members += member(path + "." + std::string(leaf.name), leaf.value);
  }
  return members;
}

std::string StringMember(const std::string &name, std::string_view value) {
  return "  " + Compact(name) + ": " + Compact(std::string(value));
}

std::string AttributesMember(const std::string &name, std::string_view value) {
  const std::string object = JsonText({{name, WithAttributes(name, value)}});
  return object.substr(2, object.size() - strlen("{\n\n}\n")); /* without the braces' lines */
}

}  // namespace

std::string JsonText(const Json &json) {
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string NodeText(const std::string &path, const std::string &text, bool json) {
  return json ? MembersText(path, text, StringMember) : LinesText(path, text);
}

std::string LeafText(const std::string &path, const std::string &value, bool json) {
  return json ? StringMember(path, value) : path + "=" + value + "\n";
}

std::string AttributeText(const std::string &path, const std::string &text, bool json) {
  return json ? MembersText(path, text, AttributesMember) : LinesText(path, text);
}

void AddText(std::string *document, std::string text, bool json) {
  if (document->empty()) {
    *document = std::move(text); /* it may be long */
    return;
  }
  if (json && !text.empty()) *document += ",\n";
  *document += text;
}

std::string DocumentText(std::string document, bool json) {
  if (!json) return document;
  return document.empty() ? "{}\n" : "{\n" + document + "\n}\n";
}

std::string TerminalText(std::string text, int descriptor) {
  return isatty(descriptor) == 1 ? Printable(text) : std::move(text);
}
