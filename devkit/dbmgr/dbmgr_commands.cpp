// What the data-base manager does with the store itself; see dbmgr_commands.h.
#include "dbmgr_commands.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "ams_config_api.h"
#include "appt_dispatch.h"
#include "escape.h"
#include "leaf_list.h"
#include "print_desk.h"
#include "store_desk.h"

namespace {

using StoreText = std::unique_ptr<char, decltype(&__tds_free)>;

DbmgrAnswer Refused(const Plan &plan) {
  return RefusedBy("the store", plan, Reason(ams_desk_failures(), "/var/log/devkit/dbmgr.log"));
}

DbmgrAnswer Get(const Plan &plan) {
  if (!plan.leaf.empty()) {
    std::string value(AMS_VALUE_MAX + 1, '\0');
    if (ams_mxml_get_leaf(plan.leaf.c_str(), value.data(), value.size()) != 0) return Refused(plan);
    value.resize(strlen(value.c_str()));
    return {0, DbmgrText::LEAF, value};
  }
  DbmgrAnswer answer = {0, DbmgrText::TEXT, ""};
  const bool read = ams_desk_text(plan.url.c_str(), kDbmgrAnswerTail, &answer.text) == 0;
  return read ? std::move(answer) : Refused(plan);
}

DbmgrAnswer Attributes(const Plan &plan) {
  char *text = nullptr;
  const std::string &path = plan.leaf.empty() ? plan.url : plan.leaf;
  if (ams_read_withAttr(gptXmlTrees->root, path.c_str(), 0, &text) != 0) return Refused(plan);
  StoreText owned(text, __tds_free);
  return {0, plan.leaf.empty() ? DbmgrText::TEXT : DbmgrText::LEAF, text != nullptr ? text : ""};
}

/* The leaves become visible together, or none does: a row may go between check and write. */
DbmgrAnswer Set(const Plan &plan) {
  if (ams_write_begin() != 0) return Refused(plan);
  int result = 0;
  Leaf leaf;
  std::string_view rest = plan.value;
  for (const std::string &path : plan.paths)
    if (!NextLeaf(&rest, &leaf) ||
        ams_set_node_value(gptXmlTrees->root, path.c_str(), std::string(leaf.value).c_str()) != 0)
      result = -1;
  result |= result == 0 ? ams_write_end() : ams_write_cancel();
  return result == 0 ? DbmgrAnswer{} : Refused(plan);
}

/* The answer has its memory before there is a row: what is told to be refused is not done. */
DbmgrAnswer Add(const Plan &plan) {
  char url[AMS_PATH_SIZE];
  DbmgrAnswer answer = {0, DbmgrText::TEXT, ""};
  answer.text.reserve(sizeof url + kDbmgrAnswerTail);
  if (ams_add_obj(gptXmlTrees->root, plan.url.c_str(), url) != 0) return Refused(plan);
  answer.text = url;
  return answer;
}

DbmgrAnswer Delete(const Plan &plan) {
  return ams_del_obj(gptXmlTrees->root, plan.url.c_str()) == 0 ? DbmgrAnswer{} : Refused(plan);
}

DbmgrAnswer List(const Plan &plan) {
  int result;
  StoreText list(cfgReadIndexes(plan.url.c_str(), "List", &result), __tds_free);
  if (list == nullptr) throw std::bad_alloc();
  if (result != 0) return Refused(plan);
  return {0, DbmgrText::TEXT, list.get()};
}

DbmgrAnswer Refresh(const Plan &) { return {}; /* whoever had to be asked was asked before */ }

DbmgrAnswer NoModule(const Plan &plan) {
  return {-1, DbmgrText::TEXT, "no module serves \"" + plan.url + "\" with this command"};
}

/* ---- what a refused one left ---- */

/* `row`: what an add named as its row; NULL when the module told nothing, since it died. */

std::string LeftBySet(const Plan &plan, const std::string *) {
  return plan.before == ValuesOf(plan.paths)
             ? "its parameters are as before"
             : "its parameters have changed meanwhile, \"cfgcmd get\" shows them";
}

std::string LeftByAdd(const Plan &, const std::string *row) {
  if (row == nullptr) return "a row may be new, \"cfgcmd list\" shows it";
  if (row->empty() || ams_check_node(gptXmlTrees->root, row->c_str()) != 0) return "no row is new";
  return "\"" + *row + "\" is there all the same, \"cfgcmd del\" takes it away";
}

constexpr unsigned kAnyNode = LEAF | OBJECT | ARRAY | INSTANCE;

const Command kCommands[] = {
    {APPT_CMD_GET, "get", kAnyNode, "", READS | ANSWERS, Get, nullptr},
    {APPT_CMD_SET, "set", OBJECT | INSTANCE, "a parameter", SETS, Set, LeftBySet},
    {APPT_CMD_ADD, "add", ARRAY, "an array", 0, Add, LeftByAdd},
    {APPT_CMD_DEL, "del", INSTANCE, "an instance of an array", 0, Delete, nullptr},
    {APPT_CMD_LIST, "list", ARRAY, "an array", STORE_ONLY, List, nullptr},
    {APPT_CMD_ATTR, "attr", kAnyNode, "", READS | ANSWERS, Attributes, nullptr},
    {APPT_CMD_REFRESH, "refresh", kAnyNode, "", READS, Refresh, nullptr},
};

/* One that the framework alone knows is for the node's module to serve. */
const Command kAnyOther = {0, "the command", kAnyNode, "", 0, NoModule, nullptr};

}  // namespace

const Command *FindCommand(uint32_t command) {
  for (const Command &row : kCommands)
    if (row.command == command) return &row;
  return appt_HasCommand(command) ? &kAnyOther : nullptr;
}

std::string ValuesOf(const std::vector<std::string> &paths) {
  if (paths.empty()) return "";
  std::string values, value(AMS_VALUE_MAX + 1, '\0');
  for (const std::string &path : paths) {
    value[0] = '\0'; /* of a leaf that is gone */
    (void)ams_mxml_get_leaf(path.c_str(), value.data(), value.size());
    values.append(value.c_str()) += '\0';
  }
  return values;
}

/* The framework's own records only say that something has failed, after whoever knows why. */
std::string Reason(std::string_view records, const char *log) {
  constexpr std::string_view kWhere = "  @P:", kFramework = "common/appt/";
  std::string_view reason, last;
  while (!records.empty()) {
    std::string_view text = records.substr(0, records.find('\0'));
    records.remove_prefix(std::min(text.size() + 1, records.size()));
    const size_t where = std::min(text.rfind(kWhere), text.size());
    const bool framework = text.substr(where).find(kFramework) != text.npos;
    text = text.substr(0, where);
    text = text.substr(0, text.find_last_not_of(" \n") + 1);
    if (!text.empty()) (framework ? last : reason) = text;
  }
  if (reason.empty()) reason = last;
  if (reason.empty()) return std::string(log) + " may say why";
  std::string line = Printable(reason);
  std::replace(line.begin(), line.end(), '\n', ' ');
  return line;
}

DbmgrAnswer RefusedBy(const std::string &who, const Plan &plan, const std::string &why,
                      const std::string &row) {
  const Command *command = FindCommand(plan.command); /* a plan has one */
  return {-1, DbmgrText::TEXT,
          who + " refused " + command->name + " of \"" +
              (plan.leaf.empty() ? plan.url : plan.leaf) + "\": " + why +
              (command->left == nullptr ? "" : "; " + command->left(plan, &row))};
}

DbmgrAnswer NoAnswerTo(const Plan &plan, const std::string &why, const char *log) {
  const Command *command = FindCommand(plan.command); /* a plan has one */
  std::string left = command->left == nullptr ? "" : command->left(plan, nullptr) + "; ";
  return {-1, DbmgrText::TEXT, why + ": " + left + "look at " + log + ", then ask again"};
}

DbmgrAnswer ServeFromStore(const Plan &plan) { return FindCommand(plan.command)->serve(plan); }
