// Checks a client's request against the tree before anything is sent, and finds who serves it: each
// refusal says what is wrong and what to do.
#include <cctype>
#include <cstring>
#include <string_view>

#include "ams_common_api.h"
#include "dbmgr.h"
#include "store_desk.h"

namespace {

constexpr size_t kFrameText = 255; /* a frame's lengths are one byte */

/* Which nodes a command takes. */
enum : unsigned { kLeaf = 1, kObject = 2, kArray = 4, kInstance = 8 };

struct CommandRule {
  uint32_t command;
  const char *name;
  unsigned takes;
  const char *needs; /* for the refusal of other nodes */
};

const CommandRule kRules[] = {
    {APPT_CMD_GET, "get", kLeaf | kObject | kArray | kInstance, ""},
    {APPT_CMD_SET, "set", kObject | kInstance, "a parameter"},
    {APPT_CMD_ADD, "add", kArray, "an array"},
    {APPT_CMD_DEL, "del", kInstance, "an instance of an array"},
    {APPT_CMD_LIST, "list", kArray, "an array"},
    {APPT_CMD_ATTR, "attr", kLeaf | kObject | kArray | kInstance, ""},
    {APPT_CMD_REFRESH, "refresh", kLeaf | kObject | kArray | kInstance, ""},
};

bool Reads(uint32_t command) {
  return command == APPT_CMD_GET || command == APPT_CMD_ATTR || command == APPT_CMD_REFRESH;
}

const CommandRule *FindRule(uint32_t command) {
  for (const CommandRule &rule : kRules)
    if (rule.command == command) return &rule;
  return nullptr;
}

std::string Attribute(const std::string &path, const char *name) {
  char value[256];
  if (ams_get_node_attr(gptXmlTrees->root, path.c_str(), name, value) != 0) return "";
  return value;
}

std::string Parent(const std::string &path) {
  size_t dot = path.rfind('.');
  return dot == std::string::npos ? "" : path.substr(0, dot);
}

/* What kind of node `path` is; 0 when there is none. */
unsigned KindOf(const std::string &path) {
  std::string type = Attribute(path, "type");
  if (type.empty()) return 0;
  if (type == "array") return kArray;
  if (type != "object") return kLeaf;
  bool number = isdigit(static_cast<unsigned char>(path[path.rfind('.') + 1])) != 0;
  return number && Attribute(Parent(path), "type") == "array" ? kInstance : kObject;
}

const char *KindName(unsigned kind) {
  switch (kind) {
    case kLeaf:
      return "a parameter";
    case kObject:
      return "an object";
    case kArray:
      return "an array";
    default:
      return "an instance";
  }
}

int Refuse(std::string *why, const std::string &text) {
  *why = text;
  return -1;
}

int RefuseUnknown(std::string *why, const std::string &path) {
  return Refuse(why, "no parameter \"" + path + "\": \"cfgcmd tree\" lists what there is");
}

/* One leaf of a set, "name=value". */
int CheckLeaf(const std::string &object, std::string_view piece, Plan *plan, std::string *why) {
  size_t equals = piece.find('=');
  if (equals == std::string_view::npos || equals == 0)
    return Refuse(why,
                  "\"" + std::string(piece) + "\" is no NAME=VALUE: name the leaf and its value");
  std::string name(piece.substr(0, equals)), path = object + "." + name;
  std::string_view value = piece.substr(equals + 1);
  if (name.find('.') != name.npos) /* its op function would not be called, or not know it */
    return Refuse(why, "\"" + name + "\" is no name: set takes the parameters of one object");
  unsigned kind = path.size() <= kFrameText ? KindOf(path) : 0;
  if (kind == 0) return RefuseUnknown(why, path);
  if (kind != kLeaf)
    return Refuse(why, "set needs a parameter, \"" + path + "\" is " + KindName(kind));
  if (Attribute(path, "writable") == "0")
    return Refuse(why, "\"" + path + "\" is read-only; \"cfgcmd sset\" writes a status by hand");
  if (value.size() > AMS_VALUE_MAX)
    return Refuse(why, "the value of \"" + path + "\" is " + std::to_string(value.size()) +
                           " bytes, at most " + std::to_string(AMS_VALUE_MAX) + " can be");
  std::string form = Attribute(path, "check");
  if (form.empty()) form = Attribute(path, "type");
  if (CheckForm(path, form, value, why) != 0) return -1;
  plan->paths.push_back(path);
  return 0;
}

int CheckLeaves(Plan *plan, std::string *why) {
  std::string_view rest = plan->value;
  if (rest.empty()) return Refuse(why, "set needs a value: cfgcmd set PATH VALUE");
  for (;;) {
    size_t end = rest.find(static_cast<char>(AMS_SEPARATOR));
    if (CheckLeaf(plan->url, rest.substr(0, end), plan, why) != 0) return -1;
    if (end == std::string_view::npos) return 0;
    rest.remove_prefix(end + 1);
  }
}

/* Whether the framework can find an op function for `url` itself: its own or that of its array.
   Requests that need one are served from the store where there is none. */
bool HasOp(const std::string &url) {
  if (!Attribute(url, "op").empty()) return true;
  std::string parent = Parent(url);
  return Attribute(parent, "type") == "array" && !Attribute(parent, "op").empty();
}

bool NeedsOp(const Plan &plan, unsigned kind) {
  return !plan.leaf.empty() || plan.command == APPT_CMD_SET || kind == kArray;
}

/* The objects and arrays right below `url`. */
std::vector<std::string> NodesBelow(const std::string &url) {
  std::vector<std::string> nodes;
  char child[AMS_PATH_SIZE];
  AmsTree *root = gptXmlTrees->root;
  int more = ams_get_first_child(root, url.c_str(), child);
  while (more == 0) {
    std::string node = child;
    if (KindOf(node) != kLeaf) nodes.push_back(node);
    more = ams_get_next_child(root, node.c_str(), child);
  }
  return nodes;
}

bool HasOpBelow(const std::string &url) {
  if (!Attribute(url, "op").empty()) return true;
  for (const std::string &node : NodesBelow(url))
    if (HasOpBelow(node)) return true;
  return false;
}

/* The topmost nodes below `url` that a module serves by op functions. An array without one of its
   own is passed over for its rows, as modules refuse such arrays. */
void FindAsks(const std::string &url, const std::string &inherited, std::vector<Ask> *asks) {
  for (const std::string &node : NodesBelow(url)) {
    std::string module = Attribute(node, "mod");
    if (module.empty()) module = inherited;
    bool bare_array = KindOf(node) == kArray && Attribute(node, "op").empty();
    if (module.empty() || bare_array)
      FindAsks(node, module, asks);
    else if (HasOpBelow(node))
      asks->push_back({module, node});
  }
}

void FindModule(Plan *plan, unsigned kind) {
  char module[TDS_NAME_SIZE];
  if (plan->command == APPT_CMD_LIST) return; /* no op function has a say in it */
  if (NeedsOp(*plan, kind) && !HasOp(plan->url)) return;
  if (ams_desk_mod(plan->url.c_str(), module, sizeof module) == 0)
    plan->module = module;
  else if (plan->leaf.empty() && Reads(plan->command))
    FindAsks(plan->url, "", &plan->asks);
}

int CheckFrame(const Plan &plan, std::string *why) {
  if (plan.module.empty() || plan.value.size() <= kFrameText) return 0;
  return Refuse(why, "the values are " + std::to_string(plan.value.size()) +
                         " bytes with their names, a request to " + plan.module +
                         " carries 255: set fewer or shorter ones");
}

/* What a refused plan left. Whoever refuses undoes first, but that may fail, too: the store knows.
 */
std::string LeftBy(const Plan &plan, const std::string &row) {
  if (plan.command == APPT_CMD_SET)
    return plan.before == ValuesOf(plan)
               ? "its parameters are as before; "
               : "its parameters have changed meanwhile, \"cfgcmd get\" shows them; ";
  if (plan.command != APPT_CMD_ADD) return "";
  if (KindOf(row) == 0) return "no row is new; ";
  return "\"" + row + "\" is there all the same, \"cfgcmd del\" takes it away; ";
}

}  // namespace

DbmgrAnswer RefusedBy(const std::string &who, const Plan &plan, const char *log,
                      const std::string &row) {
  const CommandRule *rule = FindRule(plan.command); /* a plan has one */
  return {-1, DbmgrText::Text,
          who + " refused " + rule->name + " of \"" + (plan.leaf.empty() ? plan.url : plan.leaf) +
              "\": " + LeftBy(plan, row) + log + " says why"};
}

int PlanRequest(const DbmgrRequest &request, Plan *plan, std::string *why) {
  const CommandRule *rule = FindRule(request.command);
  if (rule == nullptr)
    return Refuse(why, "unknown command " + std::to_string(request.command) +
                           ": is the client of this gateway?");
  plan->command = request.command;
  plan->url = request.url;
  if (!plan->url.empty() && plan->url.back() == '.') plan->url.pop_back();
  if (plan->url.size() > kFrameText)
    return Refuse(why, "the path is " + std::to_string(plan->url.size()) +
                           " bytes, at most 255 can be: check it");
  bool another = !plan->url.empty() && plan->url.back() == '.';
  unsigned kind = another ? 0 : KindOf(plan->url);
  if (kind == 0) return RefuseUnknown(why, plan->url);
  if ((kind & rule->takes) == 0)
    return Refuse(why, std::string(rule->name) + " needs " + rule->needs + ", \"" + plan->url +
                           "\" is " + KindName(kind));

  if (request.command == APPT_CMD_SET) {
    plan->value = request.value;
    if (CheckLeaves(plan, why) != 0) return -1;
  } else if (kind == kLeaf) { /* leaves travel as names in their object's request */
    plan->leaf = plan->url;
    plan->url = Parent(plan->leaf);
    plan->value = plan->leaf.substr(plan->url.size() + 1);
  }
  FindModule(plan, kind);
  return CheckFrame(*plan, why);
}
