// Typed views of the data model; see ams_config_tree.h.
#include "ams_config_tree.h"

#include <cassert>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "ams_config_api.h"
#include "ams_config_path.h"
#include "ams_config_print.h"
#include "leaf_list.h"

namespace {

constexpr int kPathRoom = 1024; /* what is longer than the store's limit is refused there */

/* C libraries differ in the line's type and in whether their `__assert` takes the function's name.
 */
template <typename Line>
void Stop(void (*stop)(const char *, const char *, Line), const char *text, int line,
          const char *) {
  stop(text, __FILE__, static_cast<Line>(line));
}
template <typename Line>
void Stop(void (*stop)(const char *, const char *, Line, const char *), const char *text, int line,
          const char *function) {
  stop(text, __FILE__, static_cast<Line>(line), function);
}

/* Ends the process. The text is what the board's headers make of the expression, NULL included. */
#define CONFIG_ASSERT(holds, text) \
  if (!(holds)) Stop(__assert, text, __LINE__, __func__)

/* What follows a record's head. The layouts are those that the declaration helpers make. */
template <typename Next, typename Head>
Next *Behind(Head *head) {
  return reinterpret_cast<Next *>(head + 1);
}
static_assert(sizeof(ConfigObject) % alignof(ConfigItem) == 0);
static_assert(sizeof(ConfigInst) % alignof(ConfigItem) == 0);
static_assert(offsetof(ConfigObjectRecord<2>, items) == sizeof(ConfigObject));
using Row = ConfigRowRecord<2, 2>;
static_assert(offsetof(Row, items) == sizeof(ConfigInst));
static_assert(offsetof(Row, tables) == offsetof(Row, items) + 3 * sizeof(ConfigItem));

void DestroyItems(ConfigItem *items) {
  for (ConfigItem *item = items; item->name != nullptr; ++item) ConfigItemDestroy(item);
}

/* A stored "key=value" becomes "value"; a value may hold "=" itself. */
void DropKey(char *text) {
  char *mark = strchr(text, '=');
  if (mark != nullptr) memmove(text, mark + 1, strlen(mark + 1) + 1);
}

void WriteItem(const char *path, const ConfigItem *source) {
  if (source->val == nullptr) return; /* never loaded: nothing to put in place of what is there */
  (void)ams_set_node_value(gptXmlTrees->root, path, source->val); /* logged by the store */
}

/* A row to write through: the target's prototype. Whoever takes it frees it. */
ConfigInst *ScratchRow(const ConfigArray *array, const char *tag) {
  auto *row = static_cast<ConfigInst *>(__tds_malloc(array->instSize, tag));
  if (row == nullptr) {
    CONFIG_PRINT(5, "%s: no memory for a row of %zu bytes of %s\n", tag, array->instSize,
                 array->path);
    return nullptr;
  }
  memcpy(row, array->proto, array->instSize);
  return row;
}

}  // namespace

ConfigItem *ConfigItemsOf(ConfigObject *object) { return Behind<ConfigItem>(object); }
ConfigItem *ConfigItemsOf(ConfigInst *inst) { return Behind<ConfigItem>(inst); }

const char *ConfigValue(const ConfigItem *items, const char *name) {
  for (const ConfigItem *item = items; item->name != nullptr; ++item)
    if (strcmp(item->name, name) == 0) return cfgText(item->val);
  return "";
}

/* ---- reading ---- */

namespace {

/* The start of the items' paths, with the "." behind it. */
struct Prefix {
  size_t length;
  char path[kPathRoom]; /* and room for each item's name behind it */
};

/* A prefix too long for any path is cut: it stays too long for the store. */
void SetPrefix(Prefix *prefix, const char *text) {
  size_t length = text == nullptr ? 0 : strnlen(text, sizeof prefix->path - 2);
  if (length > 0) memcpy(prefix->path, text, length);
  if (length == 0 || prefix->path[length - 1] != '.') prefix->path[length++] = '.';
  prefix->length = length;
}

const char *PathOf(Prefix *prefix, const char *name) {
  size_t length = strnlen(name, sizeof prefix->path - prefix->length - 1);
  memcpy(prefix->path + prefix->length, name, length);
  prefix->path[prefix->length + length] = '\0';
  return prefix->path;
}

/* The value in the store, "" when there is none; heap. NULL (logged) without memory. */
char *ReadValue(const char *path) {
  char *text = nullptr;
  if (ams_get_node_value(gptXmlTrees->root, path, &text) == 0 && text != nullptr) {
    DropKey(text);
    return text;
  }
  text = static_cast<char *>(__tds_malloc(2, "ConfigItemGet"));
  if (text == nullptr)
    CONFIG_PRINT(5, "ConfigItemGet: no memory for the value of %s\n", path);
  else
    memset(text, 0, 2);
  return text;
}

int GetItem(ConfigItem *item, Prefix *prefix) {
  ++item->refcnt;
  CONFIG_PRINT(1, "Get Item %s,refcnt:%d\n", item->name, item->refcnt);
  if (item->refcnt > 1) return 0;
  item->val = ReadValue(PathOf(prefix, item->name));
  if (item->val == nullptr) return -1;
  CONFIG_PRINT(1, "ConfigItemGet:val is %s\n", item->val);
  return 0;
}

void GetItems(ConfigItem *items, const char *path) {
  Prefix prefix;
  SetPrefix(&prefix, path);
  /* An item without memory was logged, and reads as "" in ConfigValue. */
  for (ConfigItem *item = items; item->name != nullptr; ++item) (void)GetItem(item, &prefix);
}

}  // namespace

int ConfigItemGet(ConfigItem *item, const char *path) {
  if (item == nullptr) return -1;
  Prefix prefix;
  SetPrefix(&prefix, path);
  return GetItem(item, &prefix);
}

int ConfigObjectGet(ConfigObject *object) {
  ++object->refcnt;
  CONFIG_PRINT(1, "Get Object: %s, refcnt: %d\n", object->path, object->refcnt);
  if (object->refcnt == 1) GetItems(ConfigItemsOf(object), object->path);
  return 0;
}

int ConfigInstGet(const char *path, ConfigInst *inst) {
  ++inst->refcnt;
  CONFIG_PRINT(1, "Get Inst: %s, refcnt: %d\n", path, inst->refcnt);
  if (inst->refcnt != 1) return 0;
  inst->index = cfgPathLastIndex(path);
  GetItems(ConfigItemsOf(inst), path);
  return 0;
}

/* Numbers without a row are normal: deleting does not renumber. */
int ConfigArrayGet(ConfigArray *array) {
  ++array->refcnt;
  CONFIG_PRINT(1, "Get Array: %s, refcnt: %d\n", array->path, array->refcnt);
  if (array->refcnt > 1) return 0;
  array->head = nullptr;
  array->count = 0;
  cfgGetArrayMaxIndex(array->path, &array->maxIndex);
  ConfigInst **tail = &array->head;
  for (int index = 1; index <= array->maxIndex; ++index) {
    char path[kPathRoom];
    snprintf(path, sizeof path, "%s%d.", array->path, index);
    if (cfgNodeExists(path) != 0) continue;
    ConfigInst *row = ScratchRow(array, "ConfigArrayGet");
    if (row == nullptr) return -1;
    row->refcnt = 0;
    row->index = index;
    row->next = nullptr;
    *tail = row;
    tail = &row->next;
    ++array->count;
    ConfigInstGet(path, row);
  }
  return 0;
}

/* ---- releasing ---- */

void ConfigItemDestroy(ConfigItem *item) {
  --item->refcnt;
  CONFIG_PRINT(1, "Destroy item: path=%s, val=%s, refcnt=%d\n", item->name, cfgText(item->val),
               item->refcnt);
  if (item->refcnt != 0 || item->val == nullptr) return;
  __tds_free(item->val);
  item->val = nullptr;
}

void ConfigObjectDestroy(ConfigObject *object) {
  --object->refcnt;
  CONFIG_PRINT(1, "Des Object: %s, refcnt: %d\n", object->path, object->refcnt);
  if (object->refcnt == 0) DestroyItems(ConfigItemsOf(object));
}

void ConfigInstDestroy(ConfigInst *inst) {
  --inst->refcnt;
  CONFIG_PRINT(1, "Des Inst: %d, refcnt: %d\n", inst->index, inst->refcnt);
  if (inst->refcnt != 0) return;
  inst->index = 0;
  inst->next = nullptr;
  DestroyItems(ConfigItemsOf(inst));
}

void ConfigArrayDestroy(ConfigArray *array) {
  if (--array->refcnt != 0) return;
  for (ConfigInst *row = array->head, *next; row != nullptr; row = next) {
    next = row->next;
    ConfigInstDestroy(row);
    /* A row got more than once still has its values: they go with it. */
    for (ConfigItem *item = ConfigItemsOf(row); item->name != nullptr; ++item)
      __tds_free(item->val);
    __tds_free(row);
  }
  array->head = nullptr;
}

void ConfigNestedArrayDestroy(ConfigArray *array) {
  for (ConfigInst *row = array->head; row != nullptr; row = row->next)
    for (ConfigArray *sub = ConfigNestedSubArrayOf(row); sub->path != nullptr; ++sub)
      ConfigArrayDestroy(sub);
  ConfigArrayDestroy(array);
}

/* ---- writing ---- */

int ConfigInstAdd(const ConfigArray *array) {
  CONFIG_ASSERT(array != nullptr, "ca != ((void *)0)");
  CONFIG_PRINT(1, "Add Inst: %s\n", array->path);
  char path[AMS_PATH_SIZE], url[AMS_PATH_SIZE] = "";
  size_t length = strlen(array->path);
  if (length == 0 || length >= sizeof path) {
    CONFIG_PRINT(4, "ConfigInstAdd: a table's path has 1 to %zu bytes, not %zu: %s\n",
                 sizeof path - 1, length, array->path);
    return -1;
  }
  memcpy(path, array->path, length - 1); /* without the "." at its end */
  path[length - 1] = '\0';
  int result = ams_add_obj(gptXmlTrees->root, path, url);
  const char *dot = strrchr(url, '.');
  if (dot != nullptr && strlen(url) > 1) result = atoi(dot + 1);
  CONFIG_PRINT(1, "%d\n", result);
  return result;
}

int ConfigInstDel(const ConfigArray *array, int index) {
  CONFIG_ASSERT(array != nullptr && index > 0, "ca != ((void *)0) && index > 0");
  char path[kPathRoom];
  snprintf(path, sizeof path, "%s%d", array->path, index);
  CONFIG_PRINT(1, "Del Inst: %s\n", path);
  return ams_del_obj(gptXmlTrees->root, path);
}

int ConfigArrayClear(const ConfigArray *array) {
  CONFIG_ASSERT(array != nullptr, "ca != ((void *)0)");
  CONFIG_PRINT(1, "Clear Array: %s\n", array->path);
  for (const ConfigInst *row = array->head; row != nullptr; row = row->next) {
    CONFIG_PRINT(1, "\tNo: %d\n", row->index);
    (void)ConfigInstDel(array,
                        row->index); /* logged by the store; the others are to go all the same */
  }
  return 0;
}

int ConfigInstAssign(const ConfigArray *array, ConfigInst *lhs, ConfigInst *rhs) {
  CONFIG_ASSERT(array != nullptr && lhs != nullptr && rhs != nullptr,
                "lca != ((void *)0) && lhs != ((void *)0) && rhs != ((void *)0)");
  CONFIG_PRINT(1, "Assign Inst: %s%d <= %d\n", array->path, lhs->index, rhs->index);
  const ConfigItem *to = ConfigItemsOf(lhs), *from = ConfigItemsOf(rhs);
  for (; to->name != nullptr && from->name != nullptr; ++to, ++from) {
    char path[kPathRoom];
    snprintf(path, sizeof path, "%s%d.%s", array->path, lhs->index, to->name);
    WriteItem(path, from);
    CONFIG_PRINT(1, "%s: %s\n", path, cfgText(from->val));
  }
  return 0;
}

/* Path and name are joined as they are: an object's path ends in "." where this is used. */
int ConfigObjectAssign(ConfigObject *lhs, ConfigObject *rhs) {
  CONFIG_ASSERT(lhs != nullptr && rhs != nullptr, "lhs != ((void *)0) && rhs != ((void *)0)");
  CONFIG_PRINT(1, "Assign Object: %s <= %s\n", lhs->path, rhs->path);
  const ConfigItem *to = ConfigItemsOf(lhs), *from = ConfigItemsOf(rhs);
  for (; to->name != nullptr && from->name != nullptr; ++to, ++from) {
    char path[kPathRoom];
    CONFIG_PRINT(1, "path = %s%s= %s\n", lhs->path, to->name, cfgText(from->val));
    snprintf(path, sizeof path, "%s%s", lhs->path, to->name);
    WriteItem(path, from);
    CONFIG_PRINT(1, "\t%s: %s\n", path, cfgText(from->val));
  }
  return 0;
}

int ConfigArrayFill(const ConfigArray *lhs, const ConfigArray *rhs) {
  CONFIG_ASSERT(lhs != nullptr && rhs != nullptr, "lhs != ((void *)0) && rhs != ((void *)0)");
  ConfigInst *scratch = ScratchRow(lhs, "ConfigArrayFill");
  if (scratch == nullptr) return -1;
  CONFIG_PRINT(1, "Fill Array: %s\n", lhs->path);
  for (ConfigInst *row = rhs->head; row != nullptr; row = row->next) {
    int index = ConfigInstAdd(lhs);
    if (index < 0) continue;
    scratch->index = index;
    ConfigInstAssign(lhs, scratch, row);
  }
  CONFIG_PRINT(1, "Fill Array ok\n");
  __tds_free(scratch);
  return 0;
}

/* ---- tables in rows ---- */

ConfigArray *ConfigNestedSubArrayOf(ConfigInst *inst) {
  CONFIG_ASSERT(inst != nullptr, "inst != ((void *)0)");
  ConfigItem *item = ConfigItemsOf(inst);
  while (item->name != nullptr) ++item;
  return Behind<ConfigArray>(item);
}

int ConfigPathExpand(ConfigArray *sub, int index, char *path, size_t size) {
  const char *mark = strstr(sub->path, "{i}");
  int length = mark == nullptr
                   ? -1
                   : snprintf(path, size, "%.*s%d%s", static_cast<int>(mark - sub->path), sub->path,
                              index, mark + 3);
  if (length < 0 || static_cast<size_t>(length) >= size) {
    CONFIG_PRINT(4, "ConfigPathExpand: %s needs one \"{i}\" and less than %zu bytes\n", sub->path,
                 size);
    return -1;
  }
  sub->path = path;
  return 0;
}

namespace {

/* One table of the target row; both paths hold their "{i}" again afterwards. */
int FillSubArray(ConfigArray *to, int to_index, ConfigArray *from, int from_index) {
  char to_path[AMS_PATH_SIZE], from_path[AMS_PATH_SIZE];
  const char *to_template = to->path, *from_template = from->path;
  int result = -1;
  if (ConfigPathExpand(to, to_index, to_path, sizeof to_path) == 0 &&
      ConfigPathExpand(from, from_index, from_path, sizeof from_path) == 0) {
    CONFIG_PRINT(1, "Fill Sub Array: %s <= %s\n", to->path, from->path);
    result = ConfigArrayFill(to, from);
    if (result >= 0) CONFIG_PRINT(1, "Fill Sub Array ok\n");
  }
  to->path = to_template;
  from->path = from_template;
  return result;
}

}  // namespace

/* Every table of the target is filled from the first one of the source: the source is not advanced
   on purpose, since callers copy one list into several. */
int ConfigNestedSubArrayFill(ConfigInst *lhs, ConfigInst *rhs) {
  CONFIG_ASSERT(lhs != nullptr && rhs != nullptr, "lhs != ((void *)0) && rhs != ((void *)0)");
  ConfigArray *from = ConfigNestedSubArrayOf(rhs), *to = ConfigNestedSubArrayOf(lhs);
  if (from->path == nullptr) return 0; /* the row has no table to copy */
  for (; to->proto != nullptr; ++to)
    if (FillSubArray(to, lhs->index, from, rhs->index) < 0) return -1;
  return 0;
}

int ConfigNestedArrayFill(const ConfigArray *lhs, const ConfigArray *rhs) {
  CONFIG_ASSERT(lhs != nullptr && rhs != nullptr, "lhs != ((void *)0) && rhs != ((void *)0)");
  CONFIG_PRINT(1, "Fill Nested Array: %s\n", lhs->path);
  ConfigInst *scratch = ScratchRow(lhs, "ConfigNestedArrayFill");
  if (scratch == nullptr) return -1;
  for (ConfigInst *row = rhs->head; row != nullptr; row = row->next) {
    int index = ConfigInstAdd(lhs);
    if (index < 0) continue;
    scratch->index = index;
    ConfigInstAssign(lhs, scratch, row);
    (void)ConfigNestedSubArrayFill(scratch,
                                   row); /* logged; the other rows are to come all the same */
  }
  CONFIG_PRINT(1, "Fill Nested Array ok\n");
  __tds_free(scratch);
  return 0;
}

/* ---- a request's value to another node ---- */

namespace {

bool HasLeaf(const char *list, const char *name) {
  std::string_view rest = cfgText(list);
  for (Leaf leaf; NextLeaf(&rest, &leaf);)
    if (leaf.name == name) return true;
  return false;
}

std::string PathBelow(const char *object, const char *name) {
  std::string path = object;
  if (path.empty() || path.back() != '.') path += '.';
  return path + name;
}

}  // namespace

int cfgCopyNodeValue(const OpFuncArg *arg, const char *object, const char *source,
                     const char *target, const char *type) {
  if (!HasLeaf(arg->value, source)) return 0;
  std::string to = PathBelow(object, target);
  ConfigItem item = {0, source, nullptr};
  if (cfgNodeExists(to.c_str()) != 0) return 0;
  if (ConfigItemGet(&item, object) != 0) return -1;
  char number[16];
  snprintf(number, sizeof number, "%d", atoi(item.val));
  const char *value = type != nullptr && strcmp(type, "string") == 0 ? item.val : number;
  int result = ams_set_node_value(gptXmlTrees->root, to.c_str(), value);
  if (result != 0) result = ams_sset_node_value(gptXmlTrees->root, to.c_str(), value);
  ConfigItemDestroy(&item);
  return result;
}
