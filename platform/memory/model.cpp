// See model.h. In a file an instance has what differs from its array's template; an array in it has
// exactly the instances that the file names there, if it names the array at all.
#include "model.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <map>
#include <utility>

#include "ams_store.h"

using pugi::xml_attribute;
using pugi::xml_node;

namespace {

bool Named(const xml_node &node, const char *tag) { return strcmp(node.name(), tag) == 0; }

bool HasType(const xml_node &node, const char *type) {
  return strcmp(node.attribute("type").value(), type) == 0;
}

/* The node, or the first behind it that is a child of the tree's. */
xml_node Shown(xml_node node) {
  while (node && (node.type() != pugi::node_element || Named(node, "Template")))
    node = node.next_sibling();
  return node;
}

xml_node Child(const xml_node &node, const std::string &name) {
  if (IsArray(node))
    if (const xml_node row = node.find_child_by_attribute("Instance", "id", name.c_str()))
      return row;
  return name.empty() || name == "Instance" || name == "Template" ? xml_node()
                                                                  : node.child(name.c_str());
}

/* Into the leaf beside the array that counts its instances, if there is one. */
void Count(const xml_node &array) {
  const auto rows = array.children("Instance");
  const std::string counter = std::string(array.name()) + "NumberOfEntries";
  if (const xml_node leaf = array.parent().child(counter.c_str()); leaf && IsLeaf(leaf))
    SetValue(leaf, std::to_string(std::distance(rows.begin(), rows.end())));
}

}  // namespace

bool IsArray(const xml_node &node) { return HasType(node, "array"); }
bool IsInstance(const xml_node &node) { return Named(node, "Instance"); }
bool IsLeaf(const xml_node &node) {
  return node && !IsArray(node) && !HasType(node, "object") && !IsInstance(node) &&
         !Named(node, "Template");
}

xml_node FirstChild(const xml_node &node) { return Shown(node.first_child()); }
xml_node NextChild(const xml_node &child) { return Shown(child.next_sibling()); }

std::string NameOf(const xml_node &node) {
  return IsInstance(node) ? node.attribute("id").value() : node.name();
}

std::string PathOf(const xml_node &node) {
  const xml_node parent = node.parent();
  return parent.type() == pugi::node_element ? PathOf(parent) + "." + NameOf(node) : NameOf(node);
}

size_t LongestBelow(const xml_node &node) {
  size_t longest = 0;
  for (xml_node child = FirstChild(node); child; child = NextChild(child))
    longest = std::max(longest, 1 + NameOf(child).size() + LongestBelow(child));
  return longest;
}

xml_node Find(const pugi::xml_document &tree, const char *path) {
  std::string rest = path == nullptr || strnlen(path, AMS_PATH_SIZE) == AMS_PATH_SIZE ? "" : path;
  if (!rest.empty() && rest.back() == '.') rest.pop_back();
  size_t dot = std::min(rest.find('.'), rest.size());
  xml_node node = tree.document_element();
  if (rest.empty() || rest.compare(0, dot, node.name()) != 0) return {};
  while (node && dot < rest.size()) {
    const size_t begin = dot + 1;
    dot = std::min(rest.find('.', begin), rest.size());
    node = Child(node, rest.substr(begin, dot - begin));
  }
  return node;
}

void SetAttribute(xml_node node, const char *name, const std::string &value) {
  if (!node.attribute(name)) node.append_attribute(name);
  node.attribute(name).set_value(value.c_str());
}

bool IsNotified(const xml_node &node) {
  return strcmp(node.attribute("notify").as_string("0"), "0") != 0;
}

void SetValue(xml_node leaf, const std::string &value) {
  if (IsNotified(leaf) && value != leaf.child_value()) SetAttribute(leaf, ".changed", "1");
  if (!leaf.first_child()) leaf.append_child(pugi::node_pcdata);
  leaf.first_child().set_value(value.c_str());
}

xml_node AddInstance(xml_node array, unsigned number) {
  xml_node before = array.child("Template");
  xml_node added = array.insert_copy_after(before, before);
  added.set_name("Instance");
  SetAttribute(added, "id", std::to_string(number));
  while (IsInstance(added.next_sibling()) &&
         added.next_sibling().attribute("id").as_uint() < number)
    array.insert_move_after(added, added.next_sibling());
  SetAttribute(array, "last", std::to_string(std::max(array.attribute("last").as_uint(), number)));
  Count(array);
  return added;
}

void DeleteInstance(xml_node instance) {
  xml_node array = instance.parent();
  array.remove_child(instance);
  Count(array);
}

/* ---- reading ---- */

namespace {

struct Wrong {
  ptrdiff_t offset;
  std::string reason;
};

void Require(bool so, const xml_node &element, const std::string &reason) {
  if (!so) throw Wrong{element.offset_debug(), std::string(element.name()) + ": " + reason};
}

unsigned NumberOf(const xml_node &element, const char *attribute) {
  const char *text = element.attribute(attribute).value(), *end = text + strlen(text);
  unsigned number = 0;
  const auto [stop, error] = std::from_chars(text, end, number);
  Require(error == std::errc() && stop == end && number > 0, element,
          std::string("'") + attribute + "' is no number from 1 on");
  return number;
}

void Shape(xml_node node, const xml_node &like, size_t above);

void ShapeLeaf(xml_node leaf) {
  std::string value; /* a comment may be in the middle of it */
  for (const xml_node &part : leaf.children()) {
    Require(part.type() != pugi::node_element, leaf, "a leaf has no nodes below it");
    value += part.value();
  }
  Require(value.size() <= AMS_VALUE_MAX, leaf, "the value is longer than 32 KiB");
  Require(value.find(char{AMS_SEPARATOR}) == value.npos, leaf, "a value has no byte 0x03");
  leaf.remove_children();
  SetValue(leaf, value);
}

/* The template first, where it is not there that of `like`, then the instances by number. */
void ShapeInstances(xml_node array, const xml_node &like, size_t above) {
  if (like && !array.child("Template")) array.prepend_copy(like.child("Template"));
  if (array.child("Template")) Shape(array.child("Template"), {}, above);
  std::map<unsigned, xml_node> rows;
  for (const xml_node &row : array.children("Instance")) {
    Require(array.child("Template"), row, "the array has no Template");
    const unsigned number = NumberOf(row, "id");
    Require(rows.emplace(number, row).second, row, std::to_string(number) + " is there twice");
  }
  unsigned last = array.attribute("last") ? NumberOf(array, "last") : 0;
  if (!rows.empty()) last = std::max(last, rows.rbegin()->first);
  if (last > 0) SetAttribute(array, "last", std::to_string(last));
  for (auto row = rows.rbegin(); row != rows.rend(); ++row) {
    SetAttribute(row->second, "id", std::to_string(row->first)); /* the plain form */
    array.prepend_move(row->second);
    Shape(row->second, array.child("Template"), above);
  }
  if (array.child("Template")) array.prepend_move(array.child("Template"));
}

void ShapeBelow(xml_node node, const xml_node &like, size_t above) {
  for (xml_node child = node.first_child(); child;) {
    const xml_node part = std::exchange(child, child.next_sibling());
    if (part.type() != pugi::node_element) {
      node.remove_child(part);
    } else if (!IsInstance(part) && !Named(part, "Template")) {
      Require(node.child(part.name()) == part, part, "it is there twice");
      Require(!like || like.child(part.name()), part, "the Template has none");
      if (!like) Shape(part, {}, above);
    } else {
      Require(IsArray(node), part, "it is in no array");
    }
  }
  for (xml_node shape = FirstChild(like); shape; shape = NextChild(shape)) {
    if (IsInstance(shape)) continue;
    if (const xml_node given = node.child(shape.name()))
      Shape(node.append_move(given), shape, above);
    else
      node.append_copy(shape);
  }
  for (const xml_node &child : node.children())
    if (IsArray(child)) Count(child);
}

/* Checks a node of the file and makes it whole. `like`: what its template has in its place, or
   null; `above`: bytes of the path to its name. */
void Shape(xml_node node, const xml_node &like, size_t above) {
  const size_t length = strlen(node.name());
  Require(length < AMS_NAME_SIZE && strchr(node.name(), '.') == nullptr, node,
          "the name is longer than 64 bytes, or has a dot");
  Require(like || Named(node, "Template") || node.attribute("type"), node, "it has no type");
  if (Named(node, "Template")) SetAttribute(node, "type", "object");
  for (const xml_attribute &attribute : like.attributes())
    if (!node.attribute(attribute.name())) node.append_copy(attribute);
  const size_t below = above + NameOf(node).size() + 1;
  Require(below <= AMS_PATH_SIZE, node, "the path is longer than 255 bytes");
  if (IsLeaf(node)) {
    ShapeLeaf(node);
  } else {
    if (IsArray(node)) ShapeInstances(node, like, below);
    ShapeBelow(node, like, below);
  }
  for (xml_node one = node.first_child(); one; one = one.next_sibling())
    one.remove_attribute(".changed"); /* loading is no change */
  Require(below + LongestBelow(node) <= AMS_PATH_SIZE, node,
          "a path in it is longer than 255 bytes");
}

}  // namespace

bool ReadModel(const std::string &xml, pugi::xml_document *tree, std::string *reason) {
  try {
    const auto result = tree->load_buffer(
        xml.data(), xml.size(), pugi::parse_default | pugi::parse_ws_pcdata, pugi::encoding_utf8);
    if (!result) throw Wrong{result.offset, result.description()};
    const xml_node root = tree->document_element();
    Require(HasType(root, "object"), root, "the root is no object");
    Shape(root, {}, 0);
    return true;
  } catch (const Wrong &wrong) {
    const auto lines =
        std::count(xml.data(), xml.data() + std::max<ptrdiff_t>(wrong.offset, 0), '\n');
    *reason = std::to_string(1 + lines) + ": " + wrong.reason;
    return false;
  }
}

/* ---- writing ---- */

namespace {

constexpr char kReserved[] = "&<>\""; /* in a file, as are control bytes */

std::string Escaped(const char *text, const char *reserved) {
  std::string escaped;
  for (; *text != '\0'; ++text) {
    const bool control = reserved == kReserved && static_cast<unsigned char>(*text) < ' ';
    if (strchr(reserved, *text) == nullptr && !control)
      escaped += *text;
    else
      escaped += *text == '"' ? "&quot;" : "&#" + std::to_string(static_cast<int>(*text)) + ";";
  }
  return escaped;
}

std::string Pair(const xml_attribute &attribute, const char *reserved) {
  return std::string(" ") + attribute.name() + "=\"" + Escaped(attribute.value(), reserved) + "\"";
}

void Write(const xml_node &node, size_t depth, int margin, std::string *out) {
  const std::string line = margin < 0 ? "" : "\n" + std::string(2 * depth, ' ');
  *out += line + "<" + node.name();
  for (const xml_attribute &attribute : node.attributes()) {
    if (attribute.name()[0] == '.') continue;
    const std::string text = Pair(attribute, kReserved);
    const size_t column = out->size() - (out->rfind('\n') + 1) + text.size();
    if (margin > 0 && column > static_cast<size_t>(margin)) *out += line + "   ";
    *out += text;
  }
  *out += ">" + Escaped(node.child_value(), kReserved);
  for (const xml_node &child : node.children())
    if (child.type() == pugi::node_element) Write(child, depth + 1, margin, out);
  *out += (IsLeaf(node) ? "</" : line + "</") + std::string(node.name()) + ">";
}

}  // namespace

std::string AttributeText(const xml_attribute &attribute) { return Pair(attribute, "\""); }

std::string FileOf(const pugi::xml_document &tree, int margin) {
  std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
  Write(tree.document_element(), 0, margin, &out);
  return out + "\n";
}
