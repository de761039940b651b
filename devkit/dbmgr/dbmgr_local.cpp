// What the data-base manager does with the store itself: serves nodes that no module serves, and
// lists.
#include <cstring>
#include <memory>

#include "ams_common_api.h"
#include "ams_config_api.h"
#include "dbmgr.h"

namespace {

using StoreText = std::unique_ptr<char, decltype(&__tds_free)>;

DbmgrAnswer Refused(const Plan &plan) {
  return RefusedBy("the store", plan, "/var/log/devkit/dbmgr.log");
}

DbmgrAnswer Get(const Plan &plan) {
  if (!plan.leaf.empty()) {
    std::string value(AMS_VALUE_MAX + 1, '\0');
    if (ams_mxml_get_leaf(plan.leaf.c_str(), value.data(), value.size()) != 0) return Refused(plan);
    value.resize(strlen(value.c_str()));
    return {0, DbmgrText::Leaf, value};
  }
  char *text = nullptr;
  if (ams_get_node_value(gptXmlTrees->root, plan.url.c_str(), &text) != 0) return Refused(plan);
  StoreText owned(text, __tds_free);
  return {0, DbmgrText::Text, text != nullptr ? text : ""};
}

DbmgrAnswer Attributes(const Plan &plan) {
  char *text = nullptr;
  const std::string &path = plan.leaf.empty() ? plan.url : plan.leaf;
  if (ams_read_withAttr(gptXmlTrees->root, path.c_str(), 0, &text) != 0) return Refused(plan);
  StoreText owned(text, __tds_free);
  return {0, plan.leaf.empty() ? DbmgrText::Text : DbmgrText::Leaf, text != nullptr ? text : ""};
}

/* The leaves become visible together, or none does: a row may go between check and write. */
DbmgrAnswer Set(const Plan &plan) {
  if (ams_write_begin() != 0) return Refused(plan);
  size_t at = 0;
  int result = 0;
  for (const std::string &path : plan.paths) {
    size_t value = plan.value.find('=', at) + 1;
    size_t end = plan.value.find(static_cast<char>(AMS_SEPARATOR), value);
    if (end == std::string::npos) end = plan.value.size();
    if (ams_set_node_value(gptXmlTrees->root, path.c_str(),
                           plan.value.substr(value, end - value).c_str()) != 0)
      result = -1;
    at = end + 1;
  }
  result |= result == 0 ? ams_write_end() : ams_write_cancel();
  return result == 0 ? DbmgrAnswer{} : Refused(plan);
}

DbmgrAnswer Add(const Plan &plan) {
  char url[AMS_PATH_SIZE];
  if (ams_add_obj(gptXmlTrees->root, plan.url.c_str(), url) != 0) return Refused(plan);
  return {0, DbmgrText::Text, url};
}

DbmgrAnswer Delete(const Plan &plan) {
  return ams_del_obj(gptXmlTrees->root, plan.url.c_str()) == 0 ? DbmgrAnswer{} : Refused(plan);
}

DbmgrAnswer List(const Plan &plan) {
  int result;
  StoreText list(cfgReadIndexes(plan.url.c_str(), "List", &result), __tds_free);
  if (list == nullptr || result != 0) return Refused(plan);
  return {0, DbmgrText::Text, list.get()};
}

DbmgrAnswer Refresh(const Plan &) { return {}; /* whoever had to be asked was asked before */ }

struct LocalRow {
  uint32_t command;
  DbmgrAnswer (*serve)(const Plan &plan);
};

const LocalRow kLocal[] = {
    {APPT_CMD_GET, Get},         {APPT_CMD_SET, Set},   {APPT_CMD_ADD, Add},
    {APPT_CMD_DEL, Delete},      {APPT_CMD_LIST, List}, {APPT_CMD_ATTR, Attributes},
    {APPT_CMD_REFRESH, Refresh},
};

}  // namespace

std::string ValuesOf(const Plan &plan) {
  std::string values, value(AMS_VALUE_MAX + 1, '\0');
  for (const std::string &path : plan.paths) {
    value[0] = '\0'; /* of a leaf that is gone */
    (void)ams_mxml_get_leaf(path.c_str(), value.data(), value.size());
    values.append(value.c_str()) += '\0';
  }
  return values;
}

DbmgrAnswer ServeFromStore(const Plan &plan) {
  for (const LocalRow &row : kLocal)
    if (row.command == plan.command) return row.serve(plan);
  return Refused(plan);
}
