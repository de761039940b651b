// Writing rows in key order; see load_rows.h. An instance is its array's Template with the elements
// that the Instance gives laid over it.
#include "load_rows.h"

#include <endian.h>

#include <algorithm>
#include <cstdlib>

#include "attributes.h"
#include "load_element.h"

namespace {

/* An Instance's elements, beside those of the Template that they are laid over. */
struct Given {
  pugi::xml_node node;
  bool there, differs; /* its attributes from those of the Template's */
};

struct Row {
  uint32_t number;
  pugi::xml_node node;
};

int Emit(Loader *loader, const Element &element, const Given &given, bool row);

/* The element that the file has for it: the given one, else the Template's. */
pugi::xml_node Or(const Given &given, pugi::xml_node other) {
  return given.there ? given.node : other;
}

/* ---- one row ---- */

int Append(Loader *loader, std::string_view key, std::string_view data) {
  MDB_val row = LmdbVal(key.data(), key.size()), value = LmdbVal(data.data(), data.size());
  int rc = LmdbRoom(shared_tree.lmdb, mdb_cursor_txn(loader->cursor), data.size());
  if (rc == 0) rc = mdb_cursor_put(loader->cursor, &row, &value, MDB_APPEND);
  if (rc == 0) return 0;
  loader->error = std::string("the store took no more: ") + mdb_strerror(rc);
  return -1;
}

std::string_view KeyText(const Key &key) {
  return {reinterpret_cast<const char *>(key.bytes), key.length};
}

/* Default rows in the Templates of arrays in Templates multiply: a small file can be an endless
   tree. Rows that wait in this process's memory count more. */
int CountRow(Loader *loader, const Element &element, size_t size) {
  constexpr size_t kBytesMax = 128 << 20, kWaiting = 4;
  loader->bytes += size * (loader->key.bytes[0] == KEY_TEMPLATE ? kWaiting : 1);
  if (loader->bytes <= kBytesMax) return 0;
  return LoadRefuse(loader, element.node, "the tree is larger than the store up to here");
}

/* Rows of templates sort behind the tree and wait. */
int PutRow(Loader *loader, const Element &element, std::string_view key, std::string_view data) {
  if (CountRow(loader, element, key.size() + data.size()) != 0) return -1;
  if (loader->key.bytes[0] != KEY_TEMPLATE) return Append(loader, key, data);
  loader->later.emplace_back(key, data);
  return 0;
}

/* The flags of a node with this element; its notify attribute, if any, waits. */
uint8_t FlagsOf(Loader *loader, const Element &element, const Key &key) {
  if (element.notify.empty() || element.notify == "0") return element.set.flags;
  loader->later.emplace_back(KeyText(KeyMarked(KEY_NOTIFY, key)), element.notify);
  return element.set.flags | RECORD_NOTIFY;
}

/* The row of an object or array, with a body of `length` bytes that `write(to)` writes. */
template <class Write>
int PutNode(Loader *loader, const Element &element, size_t length, Write write) {
  const RecordHead head = {element.kind, FlagsOf(loader, element, loader->key),
                           static_cast<uint16_t>(loader->order_length), element.set.number};
  loader->record.resize(RecordSize(head, length));
  write(RecordFront(head, loader->order, length, loader->record.data()));
  return PutRow(loader, element, KeyText(loader->key), loader->record);
}

void AppendOrder(Loader *loader, uint32_t place, size_t bytes) {
  const uint32_t all = htobe32(place << (8 * (sizeof place - bytes)));
  memcpy(loader->order + loader->order_length, &all, sizeof all);
  loader->order_length += bytes;
}

/* Goes down by the component that `append` puts at the key's end, does `work`, and comes back. */
template <class Append, class Work>
int Below(Loader *loader, pugi::xml_node node, uint32_t place, size_t order_bytes, Append append,
          Work work) {
  size_t key_length = loader->key.length, order_length = loader->order_length;
  size_t path_length = loader->path_length;
  if (append() != 0 || loader->path_length >= AMS_PATH_SIZE)
    return LoadRefuse(loader, node, "its path has more than 255 bytes");
  AppendOrder(loader, place, order_bytes);
  int rc = work();
  loader->key.length = key_length;
  loader->order_length = order_length;
  loader->path_length = path_length;
  return rc;
}

/* ---- attributes of what an instance gives ---- */

/* An attribute that is not there has the name "". */
bool SameAttributes(pugi::xml_node left, pugi::xml_node right) {
  pugi::xml_attribute one = left.first_attribute(), other = right.first_attribute();
  for (;; one = one.next_attribute(), other = other.next_attribute()) {
    const char *name = one.name(), *other_name = other.name();
    if (*name == '\0' || *other_name == '\0') return *name == *other_name;
    if (strcmp(name, other_name) != 0 || strcmp(one.value(), other.value()) != 0) return false;
  }
}

bool IsApart(std::string_view name) {
  return name == kIdAttribute || name == kNotifyAttribute || name == kLastAttribute;
}

/* True when a given element has no attributes but those that are no part of the set. */
bool OnlyApart(pugi::xml_node node) {
  for (pugi::xml_attribute attribute : node.attributes())
    if (!IsApart(attribute.name())) return false;
  return true;
}

/* Gives the element those of the template's attributes that it does not have itself. */
void Inherit(pugi::xml_node shape, pugi::xml_node given) {
  for (pugi::xml_attribute attribute : shape.attributes())
    if (!IsApart(attribute.name()) && !given.attribute(attribute.name()))
      given.append_attribute(attribute.name()) = attribute.value();
}

/* The row's attributes: the template's with those that the instance gives laid over them. */
int LayAttributes(Loader *loader, const Element &shape, pugi::xml_node given, bool row,
                  Element *laid) {
  laid->kind = shape.kind;
  laid->set = shape.set;
  laid->node = given;
  if (!OnlyApart(given)) {
    Inherit(shape.node, given);
    if (LoadAttributes(loader, given, row, laid) != 0) return -1;
  }
  if (laid->kind != shape.kind)
    return LoadRefuse(loader, given, "has another type than in the array's Template");
  pugi::xml_attribute notify = given.attribute(kNotifyAttribute);
  laid->notify = notify ? notify.value() : shape.notify;
  return 0;
}

/* What an instance gives for a node; most of the many look as in the Template. */
Given GivenFor(const Loader &loader, const Element &shape, pugi::xml_node node) {
  if (LoadHasTag(loader, node, shape.tag)) return {node, true, false};
  return {node, true, node.first_attribute() && !SameAttributes(node, shape.node)};
}

/* ---- leaves ---- */

size_t CountInstances(pugi::xml_node array) {
  size_t count = 0;
  for (pugi::xml_node node = array.child(kInstanceElement); node;
       node = node.next_sibling(kInstanceElement))
    ++count;
  return count;
}

/* Whoever loads pays for this once a leaf; mostly there is one text, which is the leaf's own. */
int LeafText(Loader *loader, pugi::xml_node leaf, std::string_view *text) {
  if (leaf.first_child() && LoadCheckLeaf(loader, leaf) != 0) return -1;
  *text = leaf.child_value();
  if (text->size() > AMS_VALUE_MAX)
    return LoadRefuse(loader, leaf, "a value has at most 32768 bytes");
  if (text->find(static_cast<char>(AMS_SEPARATOR)) != std::string_view::npos)
    return LoadRefuse(loader, leaf, "a value must not hold byte 0x03");
  return 0;
}

/* Adds a leaf, whose key is the loader's, with the attributes of `row`. */
void AddLeaf(Loader *loader, const Element &leaf, const Element &row, std::string_view value,
             LoadedLeaves *leaves) {
  const bool apart = value.size() > kShortValue;
  const unsigned flags = FlagsOf(loader, row, loader->key);
  const LeafHead head = {row.kind,
                         static_cast<uint8_t>(apart ? flags | RECORD_APART : flags),
                         leaf.place,
                         row.set.number,
                         static_cast<uint16_t>(leaf.name.size()),
                         static_cast<uint16_t>(value.size())};
  ++leaves->counts.leaves;
  leaves->heads.push_back(head);
  leaves->texts.append(leaf.name);
  if (!apart) {
    leaves->texts.append(value);
    return;
  }
  ++leaves->counts.apart;
  leaves->apart.emplace_back(KeyText(loader->key), value);
}

/* `counted`: the leaf's value is the number of instances that `listed` has. */
int EmitLeaf(Loader *loader, const Element &leaf, const Given &given, bool counted,
             pugi::xml_node listed, LoadedLeaves *leaves) {
  std::string_view value;
  std::string count;
  Element laid = {};
  if (LeafText(loader, Or(given, leaf.node), &value) != 0) return -1;
  if (counted) value = count = std::to_string(CountInstances(listed));
  if (given.differs && LayAttributes(loader, leaf, given.node, false, &laid) != 0) return -1;
  AddLeaf(loader, leaf, given.differs ? laid : leaf, value, leaves);
  return 0;
}

/* ---- objects ---- */

/* Finds what an instance gives for each child of its template; mostly it is in the same order. */
int MatchGiven(Loader *loader, const Element &shape, pugi::xml_node instance,
               std::vector<Given> *given) {
  size_t next = 0, count = shape.children.size();
  given->resize(count);
  for (pugi::xml_node node = instance.first_child(); node; node = node.next_sibling()) {
    if (next >= count) next = 0;
    size_t tried = 0, at = count == 0 ? 0 : shape.in_file[next];
    const bool same = count != 0 && LoadHasTag(*loader, node, shape.children[at].tag);
    if (!same) {
      if (node.type() != pugi::node_element) continue;
      std::string_view name = node.name();
      for (; tried < count && shape.children[at].name != name; ++tried)
        at = shape.in_file[next = (next + 1) % count];
    }
    if (tried == count) return LoadRefuse(loader, node, "the array's Template does not have it");
    ++next;
    Given &place = (*given)[at];
    if (place.there) return LoadRefuse(loader, node, "its name stands here twice");
    place = same ? Given{node, true, false} : GivenFor(*loader, shape.children[at], node);
  }
  return 0;
}

/* Does `work` for a child of an object, under its key. */
template <class Work>
int BelowChild(Loader *loader, const Element &child, const Given &given, Work work) {
  auto append = [&] {
    loader->path_length += child.name.size() + 1;
    return KeyAppendName(&loader->key, child.kind >= KIND_LEAF ? KEY_LEAF : KEY_NODE, child.name);
  };
  return Below(loader, Or(given, child.node), child.place, 2, append, work);
}

/* `given`: by the places of the object's children; empty: nothing is. */
Given GivenAt(const std::vector<Given> &given, size_t at) {
  return given.empty() ? Given{} : given[at];
}

int GatherLeaves(Loader *loader, const Element &object, const std::vector<Given> &given,
                 LoadedLeaves *leaves) {
  for (const uint16_t at : object.in_file) {
    const Element &child = object.children[at];
    const Given laid = GivenAt(given, at);
    if (child.kind < KIND_LEAF) {
      ++leaves->counts.nodes;
      continue;
    }
    auto emit = [&] {
      if (child.counts == nullptr) return EmitLeaf(loader, child, laid, false, {}, leaves);
      const size_t array = static_cast<size_t>(child.counts - object.children.data());
      return EmitLeaf(loader, child, laid, true, Or(GivenAt(given, array), child.counts->node),
                      leaves);
    };
    if (BelowChild(loader, child, laid, emit) != 0) return -1;
  }
  return 0;
}

/* The row of an object, and behind it the values that stand apart. `row` has the object's
   attributes as they are here. */
int PutObject(Loader *loader, const Element &object, const Element &row,
              const std::vector<Given> &given) {
  LoadedLeaves &leaves = loader->leaves;
  leaves.counts = {};
  leaves.counts.of_file = loader->key.bytes[0] != KEY_TEMPLATE ? 1 : 0;
  leaves.heads.clear();
  leaves.texts.clear();
  leaves.apart.clear();
  if (GatherLeaves(loader, object, given, &leaves) != 0) return -1;
  const size_t heads = leaves.heads.size() * sizeof(LeafHead);
  const size_t length = sizeof leaves.counts + heads + leaves.texts.size();
  if (PutNode(loader, row, length, [&](char *to) {
        memcpy(to, &leaves.counts, sizeof leaves.counts);
        if (heads != 0) memcpy(to + sizeof leaves.counts, leaves.heads.data(), heads);
        leaves.texts.copy(to + sizeof leaves.counts + heads, leaves.texts.size());
      }) != 0)
    return -1;
  std::sort(leaves.apart.begin(), leaves.apart.end());
  for (const auto &value : leaves.apart)
    if (PutRow(loader, row, value.first, value.second) != 0) return -1;
  return 0;
}

int EmitObject(Loader *loader, const Element &object, const Element &row, const Given &instance) {
  std::vector<Given> given;
  if (instance.there && MatchGiven(loader, object, instance.node, &given) != 0) return -1;
  if (PutObject(loader, object, row, given) != 0) return -1;
  for (size_t at = 0; at < object.children.size(); ++at) {
    const Element &child = object.children[at];
    const Given laid = GivenAt(given, at);
    if (child.kind < KIND_LEAF &&
        BelowChild(loader, child, laid, [&] { return Emit(loader, child, laid, false); }) != 0)
      return -1;
  }
  return 0;
}

/* ---- arrays ---- */

/* The instances that an array's element lists, in the order of their numbers. */
int ListRows(Loader *loader, pugi::xml_node array, std::vector<Row> *rows) {
  for (pugi::xml_node node = array.child(kInstanceElement); node;
       node = node.next_sibling(kInstanceElement)) {
    const char *id = node.attribute(kIdAttribute).value();
    uint64_t number = strtoull(id, nullptr, 10);
    if (number == 0 || number > UINT32_MAX || std::to_string(number) != id)
      return LoadRefuse(loader, node, "needs an id, a number from 1");
    rows->push_back({static_cast<uint32_t>(number), node});
  }
  auto by_number = [](const Row &left, const Row &right) { return left.number < right.number; };
  if (!std::is_sorted(rows->begin(), rows->end(), by_number))
    std::stable_sort(rows->begin(), rows->end(), by_number);
  for (size_t at = 1; at < rows->size(); ++at)
    if ((*rows)[at - 1].number == (*rows)[at].number)
      return LoadRefuse(loader, (*rows)[at].node, "its id stands here twice");
  return 0;
}

/* Templates live apart, under keys that fit every instance of the arrays above. */
int EmitTemplate(Loader *loader, const Element &shape) {
  Key kept = loader->key;
  auto append = [&] {
    const char each = KEY_EACH;
    if (kept.bytes[0] != KEY_TEMPLATE) KeyGeneral(kept.bytes, kept.length, &loader->key);
    loader->path_length += 2; /* as its first instance has */
    return KeyAppendName(&loader->key, KEY_NODE, {&each, 1});
  };
  int rc = Below(loader, shape.node, 0, 4, append, [&] { return Emit(loader, shape, {}, true); });
  loader->key = kept;
  return rc;
}

int EmitRows(Loader *loader, const Element &array, const std::vector<Row> &rows) {
  if (array.row == nullptr && !rows.empty())
    return LoadRefuse(loader, rows[0].node, "its array has no Template");
  ++loader->instances;
  for (const Row &row : rows) {
    auto append = [&] {
      const size_t before = loader->key.length;
      if (KeyAppendNumber(&loader->key, row.number) != 0) return -1;
      loader->path_length +=
          loader->key.length - before - 1; /* its count of digits is in no path */
      return 0;
    };
    int rc = Below(loader, row.node, row.number, 4, append, [&] {
      return Emit(loader, *array.row, GivenFor(*loader, *array.row, row.node), true);
    });
    if (rc != 0) return -1;
  }
  --loader->instances;
  return 0;
}

/* The objects that stand beside the rows of an array, behind all of these. */
int EmitBeside(Loader *loader, const Element &array, pugi::xml_node given) {
  constexpr uint32_t kFirstPlace = 0xffff0000;
  for (pugi::xml_node node : given.children())
    if (node.type() == pugi::node_element && !LoadIsRow(node))
      return LoadRefuse(loader, node, "the array's Template does not have it");
  for (const Element &child : array.children) {
    if (loader->instances != 0 || loader->key.bytes[0] == KEY_TEMPLATE)
      return LoadRefuse(loader, child.node, "an array in a Template holds rows only");
    auto append = [&] {
      loader->path_length += child.name.size() + 1;
      return KeyAppendName(&loader->key, KEY_NODE, child.name);
    };
    int rc = Below(loader, child.node, kFirstPlace + child.place, 4, append,
                   [&] { return Emit(loader, child, {}, false); });
    if (rc != 0) return -1;
  }
  return 0;
}

/* `row` has the array's attributes as they are here, `array` its Template. */
int EmitArray(Loader *loader, const Element &array, const Element &row, const Given &given) {
  std::vector<Row> rows;
  const pugi::xml_node node = Or(given, array.node);
  if (given.there && node.child(kTemplateElement))
    return LoadRefuse(loader, node, "its Template belongs into the outer Template");
  if (ListRows(loader, node, &rows) != 0) return -1;
  ArrayCounts counts = {node.attribute(kLastAttribute).as_uint(), 0};
  counts.count = static_cast<uint32_t>(rows.size());
  if (!rows.empty()) counts.highest = std::max(counts.highest, rows.back().number);
  auto write = [&](char *to) { memcpy(to, &counts, sizeof counts); };
  if (PutNode(loader, row, sizeof counts, write) != 0) return -1;
  if (array.row != nullptr && loader->instances == 0 && EmitTemplate(loader, *array.row) != 0)
    return -1;
  if (EmitRows(loader, array, rows) != 0) return -1;
  return EmitBeside(loader, array, given.node);
}

/* Writes the object or array whose key and order the loader has, and all below. `given`: what an
   instance has to say about it; `is_row`: it is an Instance or a Template. */
int Emit(Loader *loader, const Element &element, const Given &given, bool is_row) {
  Element laid = {};
  const Element *row = &element;
  if (given.differs) {
    if (LayAttributes(loader, element, given.node, is_row, &laid) != 0) return -1;
    row = &laid;
  }
  if (element.kind == KIND_ARRAY) return EmitArray(loader, element, *row, given);
  return EmitObject(loader, element, *row, given);
}

/* What sorts behind the tree: its format, the attribute sets, templates and notify attributes. */
int PutLater(Loader *loader) {
  loader->later.emplace_back(std::string(1, static_cast<char>(KEY_FORMAT)), kFormat);
  for (const auto &set : loader->sets)
    loader->later.emplace_back(KeyText(AttributesKey(set.second.number)), set.first);
  std::sort(loader->later.begin(), loader->later.end());
  for (const auto &row : loader->later)
    if (Append(loader, row.first, row.second) != 0) return -1;
  return 0;
}

}  // namespace

int LoadRows(Loader *loader, pugi::xml_node root) {
  Element tree = {};
  loader->key.length = loader->key.last = 0;
  loader->path_length = strlen(root.name());
  if (LoadElement(loader, root, false, &tree) != 0) return -1;
  if (tree.kind != KIND_OBJECT) return LoadRefuse(loader, root, "its type can only be \"object\"");
  loader->key.bytes[loader->key.length++] = KEY_ROOT;
  if (Emit(loader, tree, {}, false) != 0) return -1;
  return PutLater(loader);
}
