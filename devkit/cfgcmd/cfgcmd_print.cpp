// Texts that the client prints, and the log files that it reads back.
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string_view>

#include "ams_store.h"
#include "cfgcmd.h"
#include "printable.h"

namespace {

/* Calls `each` with the parts of a store text; the last may end in a separator. */
template <typename Each>
void ForParts(std::string_view text, Each each) {
  while (!text.empty()) {
    size_t end = text.find(static_cast<char>(AMS_SEPARATOR));
    each(text.substr(0, end));
    if (end == std::string_view::npos) return;
    text.remove_prefix(end + 1);
  }
}

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

Json PartWithAttributes(std::string_view part) {
  std::vector<std::pair<std::string, std::string>> found; /* from the last to the first */
  std::string name, value;
  while (TakeAttribute(&part, &name, &value)) found.emplace_back(name, value);
  Json attributes = Json::object();
  for (auto it = found.rbegin(); it != found.rend(); ++it) attributes[it->first] = it->second;
  size_t equals = part.find('=');
  Json entry;
  entry["value"] = equals == std::string_view::npos ? "" : std::string(part.substr(equals + 1));
  entry["attributes"] = attributes;
  return entry;
}

}  // namespace

std::string JsonText(const Json &json) {
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string NodeText(const std::string &path, const std::string &text, bool json) {
  Json object = Json::object();
  std::string lines;
  ForParts(text, [&](std::string_view part) {
    lines.append(path).append(".").append(part).append("\n");
    size_t equals = part.find('=');
    std::string name = path + "." + std::string(part.substr(0, equals));
    object[name] = equals == std::string_view::npos ? "" : std::string(part.substr(equals + 1));
  });
  return json ? JsonText(object) : lines;
}

std::string AttributeText(const std::string &path, const std::string &text, bool json) {
  Json object = Json::object();
  std::string lines;
  ForParts(text, [&](std::string_view part) {
    lines.append(path).append(".").append(part).append("\n");
    object[path + "." + std::string(part.substr(0, part.find('=')))] = PartWithAttributes(part);
  });
  return json ? JsonText(object) : lines;
}

std::string TerminalText(const std::string &text, int descriptor) {
  return isatty(descriptor) == 1 ? Printable(text) : text;
}

uint64_t FileSize(const char *path) {
  struct stat status;
  return stat(path, &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

std::string AppendedSince(const char *path, uint64_t offset) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  if (file.seekg(static_cast<std::streamoff>(offset))) text << file.rdbuf();
  return text.str();
}
