// The data-model store: see platform/include/ams_store.h. A reader holds on to the tree as it is; a
// writer works on a copy, which takes its place at the end.
//
// Kept in area 1: a leaf's value under its path, and under an array's the numbers of its instances,
// with the highest that was ever used: "2,9/11".
#include "ams_store.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "ams_print.h"
#include "model.h"
#include "nvram.h"
#include "tds.h"

/* There is one, whatever is loaded. */
struct AmsTree {};

struct XmlTreeSet *gptXmlTrees;

namespace {

/* By key, in nvram area 1; nothing: not set. */
using Kept = std::map<std::string, std::optional<std::string>>;

using Tree = std::shared_ptr<pugi::xml_document>;
using Node = pugi::xml_node;

/* What a writer works on. */
struct Draft {
  Tree tree, before; /* the last load */
  Kept kept;
  bool spoilt = false; /* the end of the span fails */
};

/* For ever: threads may read while the process ends. */
struct Shared {
  AmsTree handle;
  XmlTreeSet set = {nullptr};
  std::atomic<bool> served{false};
  std::mutex publishing, writing;
  Tree tree = std::make_shared<pugi::xml_document>(); /* under `publishing` */
  Tree before = tree; /* the last load; under `writing`, as the draft is */
  Draft draft;
  int margin = 72;
};
Shared &shared = *new Shared;
thread_local bool in_span; /* this thread holds `writing` */

/* The tree that a call reads, for as long as this lives, and where its path leads there. */
struct Place {
  Tree tree;
  Node node; /* null where there is none */
};

Place At(const AmsTree *handle, const char *path) {
  Place place;
  if (in_span) {
    place.tree = shared.draft.tree;
  } else {
    std::lock_guard<std::mutex> lock(shared.publishing);
    place.tree = shared.tree;
  }
  if (handle != nullptr) place.node = Find(*place.tree, path);
  return place;
}

AmsTree *Default() { return gptXmlTrees == nullptr ? nullptr : gptXmlTrees->root; }

/* Logs why a call fails. */
int Refuse(const char *path, const char *why) {
  AMS_PRINT(4, "store: %.*s: %s\n", AMS_PATH_SIZE, path == nullptr ? "(null)" : path, why);
  return -1;
}

int CopyOut(const std::string &text, char *out, size_t size) {
  if (size == 0) return -1;
  const size_t length = std::min(text.size(), size - 1);
  memcpy(out, text.data(), length);
  out[length] = '\0';
  return length < text.size() ? -1 : 0;
}

/* ---- changes ---- */

std::optional<std::string> KeptNow(const std::string &key) {
  if (const auto found = shared.draft.kept.find(key); found != shared.draft.kept.end())
    return found->second;
  std::unique_ptr<char, void (*)(void *)> value(nvram_get(key.c_str(), NVTYPE_STAGING), free);
  return value == nullptr ? std::nullopt : std::optional<std::string>(value.get());
}

/* The settings of this board take all that fits the store, and their commit cannot fail. */
void Keep(const Kept &kept) {
  for (const auto &[key, value] : kept)
    (void)(value ? nvram_set(key.c_str(), value->c_str(), NVTYPE_STAGING)
                 : nvram_unset(key.c_str(), NVTYPE_STAGING));
  if (!kept.empty()) (void)nvram_commit(NVTYPE_STAGING);
}

/* Does `work` to the draft: to the span's, or to one that is published if it returns 0. It changes
   nothing where it fails. */
int Writing(const std::function<int()> &work) {
  if (in_span) return work();
  if (ams_write_begin() != 0) return -1;
  return work() == 0 ? ams_write_end() : (ams_write_cancel(), -1);
}

void SetStatus(Node leaf, bool status) {
  leaf.remove_attribute(".status");
  if (status) SetAttribute(leaf, ".status", "1");
}

/* With `kept` configuration, else a status. */
int Set(AmsTree *tree, const char *path, const char *value, bool kept) {
  if (value == nullptr) value = "";
  if (strnlen(value, AMS_VALUE_MAX + 1) > AMS_VALUE_MAX)
    return Refuse(path, "the value is longer than 32 KiB");
  if (strchr(value, AMS_SEPARATOR) != nullptr) return Refuse(path, "a value has no byte 0x03");
  return Writing([&] {
    Node leaf = At(tree, path).node;
    if (!IsLeaf(leaf)) return Refuse(path, "there is no such leaf");
    if (kept && strcmp(leaf.attribute("writable").value(), "0") == 0)
      return Refuse(path, "it is read-only");
    SetValue(leaf, value);
    SetStatus(leaf, !kept);
    if (kept) shared.draft.kept[PathOf(leaf)] = value;
    return 0;
  });
}

std::string NumbersOf(const Node &array) {
  std::string numbers;
  for (const Node &row : array.children("Instance"))
    numbers += (numbers.empty() ? "" : ",") + NameOf(row);
  return numbers;
}

void KeepInstances(const Node &array) {
  shared.draft.kept[PathOf(array)] =
      NumbersOf(array) + "/" + array.attribute("last").as_string("0");
}

/* ---- over a start ---- */

/* The array's instances become those of the list. Whether it is one. */
bool LayInstances(Node array, const char *list) {
  std::set<unsigned> numbers;
  unsigned number = 0;
  const char *at = list, *end = list + strlen(list);
  for (; at < end && *at != '/'; at += *at == ',' ? 1 : 0) {
    const auto [next, error] = std::from_chars(at, end, number);
    if (error != std::errc() || number == 0) return false;
    numbers.insert(number);
    at = next;
  }
  if (at == end || std::from_chars(at + 1, end, number).ptr != end) return false;
  if (!array.child("Template")) return false;
  for (Node row = array.child("Instance"); row;) {
    const Node one = std::exchange(row, row.next_sibling("Instance"));
    if (numbers.erase(one.attribute("id").as_uint()) == 0) DeleteInstance(one);
  }
  for (const unsigned missing : numbers) AddInstance(array, missing);
  if (number > array.attribute("last").as_uint())
    SetAttribute(array, "last", std::to_string(number));
  return true;
}

int LayKept(const char *key, const char *value, void *) {
  Node node = Find(*shared.draft.tree, key);
  const bool is_value = IsLeaf(node) && strchr(value, AMS_SEPARATOR) == nullptr &&
                        strcmp(node.attribute("writable").value(), "0") != 0;
  if (is_value) SetValue(node, value);
  if (!is_value && !(IsArray(node) && LayInstances(node, value)))
    AMS_PRINT(3, "store: what is kept as %s does not fit the tree\n", key);
  return 0;
}

/* The status that `old` has, and what is below it. */
void LayStatus(const Node &old) {
  Node node = Find(*shared.draft.tree, PathOf(old).c_str());
  if (!node || IsLeaf(node) != IsLeaf(old)) return;
  if (old.attribute(".status")) {
    SetValue(node, old.child_value());
    SetStatus(node, true);
  }
  for (Node child = FirstChild(old); child; child = NextChild(child)) LayStatus(child);
}

void ForgetChanges(Node node) {
  node.remove_attribute(".changed");
  for (Node child = FirstChild(node); child; child = NextChild(child)) ForgetChanges(child);
}

std::string ContentOf(FILE *file) {
  std::string content;
  char part[4096];
  for (size_t got; (got = fread(part, 1, sizeof part, file)) > 0;) content.append(part, got);
  return content;
}

std::string FileName(FILE *file) {
  char name[4096];
  const std::string link = "/proc/self/fd/" + std::to_string(fileno(file));
  const ssize_t length = readlink(link.c_str(), name, sizeof name);
  return length < 0 ? "data-model file" : std::string(name, static_cast<size_t>(length));
}

}  // namespace

struct XmlTreeSet *ShmPoolSrvInit(void) {
  shared.served = true;
  return &shared.set;
}

/* The server is in this process, too. */
struct XmlTreeSet *ShmPoolCliInit(void) {
  if (shared.served) return &shared.set;
  AMS_PRINT(4, "store: nobody has made it in this process\n");
  return nullptr;
}

struct AmsTree *ams_mxmlLoadFile(void *, FILE *file, void *) {
  std::string reason = "0: it is not open";
  const Tree loaded = std::make_shared<pugi::xml_document>();
  if (file == nullptr || !ReadModel(ContentOf(file), loaded.get(), &reason)) {
    fprintf(stderr, "%s:%s\n", file == nullptr ? "data-model file" : FileName(file).c_str(),
            reason.c_str());
    if (in_span) shared.draft.spoilt = true;
    return nullptr;
  }
  const int result = Writing([&] {
    shared.draft.before = std::exchange(shared.draft.tree, loaded);
    return 0;
  });
  if (result == 0 && shared.set.root == nullptr) shared.set.root = &shared.handle;
  return result == 0 ? &shared.handle : nullptr;
}

void mxmlSetWrapMargin(int column) { shared.margin = std::max(column, 0); }

int update_from_nvram(struct AmsTree *root, int area) {
  if (root == nullptr) return Refuse("update_from_nvram", "nothing is loaded");
  return Writing([&] {
    const std::string below = std::string(shared.draft.tree->document_element().name()) + ".";
    if (nvram_walk(area, below.c_str(), LayKept, nullptr) != 0) return -1;
    LayStatus(shared.draft.before->document_element());
    ForgetChanges(shared.draft.tree->document_element());
    return 0;
  });
}

/* There are no files on this board. */
int ams_mxml_load_to_staging(int source) {
  printf("staging source %d: this board has no file of it\n", source);
  return -1;
}

/* ---- reading ---- */

int ams_check_node(struct AmsTree *root, const char *path) { return At(root, path).node ? 0 : -1; }

int ams_get_node_attr(struct AmsTree *root, const char *path, const char *name, char *value,
                      size_t size) {
  const Place place = At(root, path);
  const pugi::xml_attribute found =
      name[0] == '.' ? pugi::xml_attribute() : place.node.attribute(name);
  (void)CopyOut(found.value(), value, size); /* cut */
  return found ? 0 : -1;
}

int ams_get_first_child(struct AmsTree *root, const char *parent, char url[AMS_PATH_SIZE]) {
  const Place place = At(root, parent);
  const Node child = FirstChild(place.node);
  return child ? CopyOut(PathOf(child), url, AMS_PATH_SIZE) : -1;
}

/* An instance need not be there any more: the next is the one with the next number. */
int ams_get_next_child(struct AmsTree *root, const char *child, char url[AMS_PATH_SIZE]) {
  char parent[AMS_PATH_SIZE];
  if (child == nullptr || COMMON_GetParentNode(child, parent) != 0) return -1;
  const Place place = At(root, parent);
  unsigned number = 0;
  const char *name = child + strlen(parent) + 1;
  const auto end = std::from_chars(name, name + strlen(name), number).ptr;
  Node next = Find(*place.tree, child);
  if (next) {
    next = NextChild(next);
  } else if (IsArray(place.node) && number > 0 && strcmp(end + (*end == '.' ? 1 : 0), "") == 0) {
    next = FirstChild(place.node);
    while (IsInstance(next) && next.attribute("id").as_uint() < number) next = NextChild(next);
  }
  return next ? CopyOut(PathOf(next), url, AMS_PATH_SIZE) : -1;
}

namespace {

enum class Form { PLAIN, WITH_ATTRIBUTES, CHANGED };

void AppendLeaf(const Node &leaf, const std::string &name, Form form, std::string *text) {
  if (form == Form::CHANGED && !leaf.attribute(".changed")) return;
  if (!text->empty()) *text += char{AMS_SEPARATOR};
  *text += name + "=" + leaf.child_value();
  for (const pugi::xml_attribute &attribute : leaf.attributes())
    if (form != Form::PLAIN && attribute.name()[0] != '.') *text += AttributeText(attribute);
}

/* `prefix`: the path of `node` from where the reading begins, with its dot. */
void Append(const Node &node, const std::string &prefix, Form form, std::string *text) {
  for (Node child = FirstChild(node); child; child = NextChild(child))
    if (IsLeaf(child))
      AppendLeaf(child, prefix + child.name(), form, text);
    else
      Append(child, prefix + NameOf(child) + ".", form, text);
}

int HandOut(const Node &node, Form form, char **text) {
  std::string all;
  if (IsLeaf(node))
    AppendLeaf(node, node.name(), form, &all);
  else
    Append(node, "", form, &all);
  *text = node ? __tds_strndup(all.data(), all.size(), "ams_store") : nullptr;
  return *text == nullptr ? -1 : 0;
}

int ReadChanges(struct AmsTree *root, const char *path, char **text) {
  return Writing([&] {
    Place place = At(root, path);
    if (strcmp(place.node.name(), "ALL_CHANGED_DATA") == 0) place.node = place.node.parent();
    if (HandOut(place.node, Form::CHANGED, text) != 0) return -1;
    ForgetChanges(place.node);
    return 0;
  });
}

}  // namespace

int ams_get_node_value(struct AmsTree *root, const char *path, char **text) {
  const Place place = At(root, path);
  return HandOut(place.node, Form::PLAIN, text);
}

int ams_read_withAttr(struct AmsTree *root, const char *path, int change_list, char **text) {
  *text = nullptr;
  if (change_list != 0) return ReadChanges(root, path, text);
  const Place place = At(root, path);
  return HandOut(place.node, Form::WITH_ATTRIBUTES, text);
}

int ams_get_idxes(struct AmsTree *root, const char *array, char *list, size_t size) {
  const Place place = At(root, array);
  if (size > 0) list[0] = '\0';
  if (!IsArray(place.node)) return -1;
  if (CopyOut(NumbersOf(place.node), list, size) == 0) return 0;
  if (size > 0) list[0] = '\0';
  return Refuse(array, "the list of instances does not fit");
}

int ams_get_array_maxIndex(struct AmsTree *root, const char *array, char *text, size_t size) {
  const Place place = At(root, array);
  if (size > 0) text[0] = '\0';
  if (!IsArray(place.node)) return -1;
  std::string highest = "0";
  for (const Node &row : place.node.children("Instance")) highest = NameOf(row);
  return CopyOut(highest, text, size);
}

int ams_mxml_get_leaf(const char *path, char *value, size_t size) {
  const Place place = At(Default(), path);
  if (!IsLeaf(place.node)) return -1;
  if (CopyOut(place.node.child_value(), value, size) != 0) AMS_PRINT(3, "store: %s: cut\n", path);
  return 0;
}

int ams_mxml_list_array(const char *array, struct AmsArrayList *list) {
  const Place place = At(Default(), array);
  list->count = 0;
  if (!IsArray(place.node)) return -1;
  for (const Node &row : place.node.children("Instance")) {
    if (list->count == AMS_LIST_SLOTS) {
      AMS_PRINT(3, "store: %s: more than %d instances\n", array, AMS_LIST_SLOTS);
      break;
    }
    (void)CopyOut(PathOf(row) + ".", list->slots[list->count++],
                  AMS_LIST_SLOT_SIZE); /* a path fits */
  }
  return 0;
}

/* ---- writing ---- */

int ams_set_node_value(struct AmsTree *root, const char *path, const char *value) {
  return Set(root, path, value, true);
}

int ams_sset_node_value(struct AmsTree *root, const char *path, const char *value) {
  return Set(root, path, value, false);
}

int ams_mxml_fset_leaf(const char *path, const char *value) {
  return Set(Default(), path, value, false);
}

int ams_mxml_sset_leaf_int(const char *path, int value) {
  return Set(Default(), path, std::to_string(value).c_str(), false);
}

int ams_add_obj(struct AmsTree *root, const char *array, char url[AMS_PATH_SIZE]) {
  url[0] = '\0';
  return Writing([&] {
    const Node place = At(root, array).node;
    const std::string path = PathOf(place);
    const unsigned last = place.attribute("last").as_uint();
    if (!IsArray(place) || !place.child("Template"))
      return Refuse(array, "there is no such array, or it has no template");
    if (last == UINT_MAX) return Refuse(array, "there are no more numbers");
    const std::string made = path + "." + std::to_string(last + 1);
    if (made.size() + LongestBelow(place.child("Template")) >= AMS_PATH_SIZE)
      return Refuse(array, "a path in the new row is longer than 255 bytes");
    AddInstance(place, last + 1);
    KeepInstances(place);
    return CopyOut(made, url, AMS_PATH_SIZE);
  });
}

int ams_del_obj(struct AmsTree *root, const char *instance) {
  return Writing([&] {
    const Node row = At(root, instance).node, array = row.parent();
    if (!IsInstance(row)) return Refuse(instance, "there is no such instance");
    const std::string below = PathOf(row) + ".";
    const auto forget = [](const char *key, const char *, void *) {
      shared.draft.kept[key] = std::nullopt;
      return 0;
    };
    (void)nvram_walk(NVTYPE_STAGING, below.c_str(), forget, nullptr); /* it cannot fail */
    for (auto &[key, value] : shared.draft.kept)
      if (key.compare(0, below.size(), below) == 0) value = std::nullopt;
    DeleteInstance(row);
    KeepInstances(array);
    return 0;
  });
}

int ams_get_attr(struct AmsTree *root, const char *path, char *value, size_t size) {
  const Place place = At(root, path);
  if (!place.node) return Refuse(path, "there is no such node");
  (void)CopyOut(place.node.attribute("notify").as_string("0"), value, size); /* cut */
  return 0;
}

int ams_set_attr(struct AmsTree *root, const char *path, const char *value) {
  constexpr size_t kLongest = 64;
  return Writing([&] {
    Node node = At(root, path).node;
    if (!node || value == nullptr) return Refuse(path, "there is no such node, or no value");
    if (*value == '\0' || strnlen(value, kLongest + 1) > kLongest)
      return Refuse(path, "the notify attribute has 1 to 64 bytes");
    SetAttribute(node, "notify", value);
    if (!IsNotified(node)) node.remove_attribute(".changed");
    return 0;
  });
}

int ams_write_begin(void) {
  if (in_span) return Refuse("span", "they do not nest");
  shared.writing.lock();
  shared.draft = {std::make_shared<pugi::xml_document>(), shared.before, {}, false};
  shared.draft.tree->reset(*shared.tree); /* which only a writer replaces */
  in_span = true;
  return 0;
}

int ams_write_end(void) {
  if (!in_span) return Refuse("span", "none is open");
  const bool spoilt = shared.draft.spoilt;
  if (!spoilt) {
    Keep(shared.draft.kept);
    shared.before = shared.draft.before;
    std::lock_guard<std::mutex> lock(shared.publishing);
    shared.tree = shared.draft.tree;
  }
  (void)ams_write_cancel(); /* one is open */
  return spoilt ? Refuse("span", "a load in it failed, its writes are given up") : 0;
}

int ams_write_cancel(void) {
  if (!in_span) return Refuse("span", "none is open");
  shared.draft = {};
  in_span = false;
  shared.writing.unlock();
  return 0;
}

struct AmsUndo {
  struct Leaf {
    std::string path, value;
    bool status;
    std::optional<std::string> kept;
  };
  std::vector<Leaf> leaves;
};

int ams_undo_note(struct AmsTree *root, struct AmsUndo **undo, const char *path) {
  return Writing([&] {
    const Place place = At(root, path);
    if (!IsLeaf(place.node)) return Refuse(path, "there is no such leaf");
    const std::string key = PathOf(place.node);
    if (*undo == nullptr) *undo = new AmsUndo;
    (*undo)->leaves.push_back(
        {key, place.node.child_value(), !place.node.attribute(".status").empty(), KeptNow(key)});
    return 0;
  });
}

int ams_undo_end(struct AmsUndo *undo, int put_back) {
  const std::unique_ptr<AmsUndo> owned(undo);
  if (undo == nullptr || put_back == 0) return 0;
  if (in_span) return Refuse("undo", "not inside a span");
  return Writing([&] {
    for (auto leaf = undo->leaves.rbegin(); leaf != undo->leaves.rend(); ++leaf) {
      const Node now = Find(*shared.draft.tree, leaf->path.c_str());
      if (!IsLeaf(now)) continue;
      SetValue(now, leaf->value);
      SetStatus(now, leaf->status);
      shared.draft.kept[leaf->path] = leaf->kept;
    }
    return 0;
  });
}

namespace {

int Save(struct AmsTree *root, const char *file, int margin) {
  if (root == nullptr || file == nullptr)
    return Refuse("save", "nothing is loaded, or no file named");
  const std::string text = FileOf(*At(root, "").tree, margin), beside = std::string(file) + ".new";
  FILE *out = fopen(beside.c_str(), "we");
  if (out == nullptr) return Refuse(file, "the file beside it cannot be written");
  const bool written = fwrite(text.data(), 1, text.size(), out) == text.size();
  if (fclose(out) == 0 && written && rename(beside.c_str(), file) == 0) return 0;
  (void)unlink(beside.c_str()); /* it may not be there */
  return Refuse(file, "it cannot be written");
}

}  // namespace

int ams_save_xml(struct AmsTree *root, const char *file) { return Save(root, file, shared.margin); }

int ams_align_xml(struct AmsTree *root, const char *file) { return Save(root, file, -1); }
