// Looking at elements: types, attributes, names and what may stand where; see load_element.h.
#include "load_element.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace {

constexpr size_t kMostChildren = 65535;       /* two bytes of the order */
constexpr int kMostDepth = AMS_PATH_SIZE / 2; /* names have a byte at least, and a dot */

AttributeSet MakeSet(Loader *loader, pugi::xml_node node, bool row, bool typed, bool array) {
  std::string &text = loader->scratch;
  AttributeSet set = {};
  text.clear();
  if (!typed) text.append(kTypeAttribute).append(1, '\0').append("object").append(1, '\0');
  for (pugi::xml_attribute attribute : node.attributes()) {
    std::string_view name = attribute.name(), value = attribute.value();
    if (name == kNotifyAttribute || (row && name == kIdAttribute) ||
        (array && name == kLastAttribute))
      continue;
    if (name == "op" && !value.empty()) set.flags |= RECORD_OP;
    if (name == "mod" && !value.empty()) set.flags |= RECORD_MOD;
    if (name == "writable" && value == "0") set.flags |= RECORD_READONLY;
    text.append(name).append(1, '\0').append(value).append(1, '\0');
  }
  auto known = loader->sets.find(text);
  if (known != loader->sets.end()) return known->second;
  set.number = static_cast<uint32_t>(loader->sets.size()) + 1;
  return loader->sets.emplace(text, set).first->second;
}

bool ReadNumber(pugi::xml_attribute attribute, int64_t *number) {
  const std::string_view text = attribute.value();
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), *number);
  return error == std::errc() && stop == text.data() + text.size();
}

/* Whoever checks a value relies on it: "min" and "max" are numbers that the type has, in order, or
   of a string its most bytes. */
int CheckBounds(Loader *loader, pugi::xml_node node, std::string_view type) {
  const pugi::xml_attribute min = node.attribute("min"), max = node.attribute("max");
  int64_t least = 0, most = AMS_VALUE_MAX, low, high;
  if (!min && !max) return 0;
  if (type == "int") {
    least = std::numeric_limits<int32_t>::min();
    most = std::numeric_limits<int32_t>::max();
  } else if (type == "unsignedInt") {
    most = std::numeric_limits<uint32_t>::max();
  } else if (type != "string" || min) {
    return LoadRefuse(loader, node, "numbers have min and max, strings have max");
  }
  low = least;
  high = most;
  if ((min && !ReadNumber(min, &low)) || (max && !ReadNumber(max, &high)) || low < least ||
      high > most || low > high)
    return LoadRefuse(loader, node, "min and max are numbers of its type, the lower one first");
  return 0;
}

bool GoodName(std::string_view name) {
  if (name.empty() || (name[0] >= '0' && name[0] <= '9')) return false;
  for (char c : name)
    if (!(c >= 'a' && c <= 'z') && !(c >= 'A' && c <= 'Z') && !(c >= '0' && c <= '9') && c != '_' &&
        c != '-')
      return false;
  return true;
}

int CheckName(Loader *loader, pugi::xml_node node, std::string_view name) {
  if (!GoodName(name))
    return LoadRefuse(loader, node, "a name has letters, digits, _ and -, and no digit first");
  if (LoadIsRow(node)) return LoadRefuse(loader, node, "it stands in an array only");
  if (name.size() >= AMS_NAME_SIZE) return LoadRefuse(loader, node, "a name has at most 64 bytes");
  return 0;
}

/* Lets each "...NumberOfEntries" leaf know its array. `children` is sorted by name. */
void FindCounted(std::vector<Element> *children) {
  constexpr size_t tail = sizeof kEntriesName - 1;
  for (Element &leaf : *children) {
    if (leaf.name.size() <= tail || leaf.kind < KIND_LEAF) continue;
    if (leaf.name.substr(leaf.name.size() - tail) != kEntriesName) continue;
    std::string_view wanted = leaf.name.substr(0, leaf.name.size() - tail);
    for (const Element &array : *children)
      if (array.kind == KIND_ARRAY && array.name == wanted) leaf.counts = &array;
  }
}

/* Puts the children into the order of their names, none of which may stand there twice. */
int SortChildren(Loader *loader, std::vector<Element> *children) {
  std::sort(children->begin(), children->end(),
            [](const Element &left, const Element &right) { return left.name < right.name; });
  for (size_t at = 1; at < children->size(); ++at)
    if ((*children)[at - 1].name == (*children)[at].name)
      return LoadRefuse(loader, (*children)[at].node, "its name stands here twice");
  return 0;
}

/* Of an array: what stands beside its rows. */
int ChildElements(Loader *loader, Element *element) {
  std::vector<Element> &children = element->children;
  bool array = element->kind == KIND_ARRAY;
  for (pugi::xml_node node : element->node.children()) {
    if (node.type() != pugi::node_element || (array && LoadIsRow(node))) continue;
    if (children.size() == kMostChildren)
      return LoadRefuse(loader, node, "its object has too many elements");
    children.emplace_back();
    children.back().name = node.name();
    children.back().place = static_cast<uint16_t>(children.size() - 1);
    if (CheckName(loader, node, node.name()) != 0) return -1;
    if (LoadElement(loader, node, false, &children.back()) != 0) return -1;
    if (array && children.back().kind >= KIND_LEAF)
      return LoadRefuse(loader, node, "an array holds one Template, Instances and objects only");
  }
  if (SortChildren(loader, &children) != 0) return -1;
  FindCounted(&children);
  element->in_file.resize(children.size());
  for (size_t at = 0; at < children.size(); ++at)
    element->in_file[children[at].place] = static_cast<uint16_t>(at);
  return 0;
}

int ArrayElement(Loader *loader, Element *element) {
  if (ChildElements(loader, element) != 0) return -1;
  pugi::xml_node shape = element->node.child(kTemplateElement);
  if (!shape) return 0;
  if (shape.next_sibling(kTemplateElement))
    return LoadRefuse(loader, shape, "an array has one Template");
  element->row = std::make_unique<Element>();
  ++loader->templates;
  const int rc = LoadElement(loader, shape, true, element->row.get());
  --loader->templates;
  return rc;
}

/* From the "<" to the ">"; a value may have one, too. */
std::string_view TagOf(const Loader &loader, pugi::xml_node node) {
  const ptrdiff_t name = node.offset_debug();
  if (name < 1 || loader.text[static_cast<size_t>(name) - 1] != '<') return {};
  const std::string_view rest = loader.text.substr(static_cast<size_t>(name) - 1);
  char quote = '\0';
  for (size_t at = 0; at < rest.size(); ++at) {
    if (quote == '\0' && rest[at] == '>') return rest.substr(0, at + 1);
    if (rest[at] == quote)
      quote = '\0';
    else if (quote == '\0' && (rest[at] == '"' || rest[at] == '\''))
      quote = rest[at];
  }
  return {};
}

}  // namespace

bool LoadHasTag(const Loader &loader, pugi::xml_node node, std::string_view tag) {
  const ptrdiff_t name = tag.empty() ? 0 : node.offset_debug();
  return name >= 1 && loader.text.compare(static_cast<size_t>(name) - 1, tag.size(), tag) == 0;
}

bool LoadIsRow(pugi::xml_node node) {
  std::string_view name = node.name();
  return name == kTemplateElement || name == kInstanceElement;
}

int LoadRefuse(Loader *loader, pugi::xml_node where, const std::string &reason) {
  loader->error = std::string("<") + where.name() + ">: " + reason;
  loader->error_at = where.offset_debug();
  return -1;
}

int LoadAttributes(Loader *loader, pugi::xml_node node, bool row, Element *element) {
  std::string_view type = node.attribute(kTypeAttribute).value();
  bool typed = !type.empty();
  if (!typed && !row) return LoadRefuse(loader, node, "needs a type attribute");
  if (!typed) type = kKindNames[KIND_OBJECT];
  element->node = node;
  element->kind = 0;
  while (element->kind < KIND_COUNT && type != kKindNames[element->kind]) ++element->kind;
  if (element->kind == KIND_COUNT)
    return LoadRefuse(loader, node, "unknown type \"" + std::string(type) + "\"");
  if (row && element->kind != KIND_OBJECT)
    return LoadRefuse(loader, node, "its type can only be \"object\"");
  if (CheckBounds(loader, node, type) != 0) return -1;
  element->set = MakeSet(loader, node, row, typed, element->kind == KIND_ARRAY);
  element->notify = node.attribute(kNotifyAttribute).value();
  return 0;
}

int LoadCheckLeaf(Loader *loader, pugi::xml_node leaf) {
  for (pugi::xml_node node = leaf.first_child(); node; node = node.next_sibling())
    if (node.type() == pugi::node_element)
      return LoadRefuse(loader, leaf, "a leaf holds no elements");
  return 0;
}

int LoadElement(Loader *loader, pugi::xml_node node, bool row, Element *element) {
  if (LoadAttributes(loader, node, row, element) != 0) return -1;
  if (loader->templates != 0) element->tag = TagOf(*loader, node);
  if (element->kind >= KIND_LEAF) return LoadCheckLeaf(loader, node);
  if (loader->depth == kMostDepth)
    return LoadRefuse(loader, node, "its path has more than 255 bytes");
  ++loader->depth;
  int rc =
      element->kind == KIND_OBJECT ? ChildElements(loader, element) : ArrayElement(loader, element);
  --loader->depth;
  return rc;
}
