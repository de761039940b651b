// Checks of requests; see dbmgr_plan.h.
#include "dbmgr_plan.h"

#include <algorithm>
#include <cctype>
#include <string_view>

#include "ams_common_api.h"
#include "dbmgr_commands.h"
#include "dbmgr_forms.h"
#include "leaf_list.h"
#include "nodes.h"
#include "store_desk.h"

namespace {

constexpr size_t kFrameText = 255; /* a frame's lengths are one byte */

std::string Parent(const std::string &path) {
  size_t dot = path.rfind('.');
  return dot == std::string::npos ? "" : path.substr(0, dot);
}

/* What kind of node `path` is; 0 when there is none. */
unsigned KindOf(const std::string &path) {
  std::string type = Attribute(path, "type");
  if (type.empty()) return 0;
  if (type == "array") return ARRAY;
  if (type != "object") return LEAF;
  bool number = isdigit(static_cast<unsigned char>(path[path.rfind('.') + 1])) != 0;
  return number && Attribute(Parent(path), "type") == "array" ? INSTANCE : OBJECT;
}

const char *KindName(unsigned kind) {
  switch (kind) {
    case LEAF:
      return "a parameter";
    case OBJECT:
      return "an object";
    case ARRAY:
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

/* One leaf of a set. */
int CheckLeaf(const std::string &object, const Leaf &leaf, Plan *plan, std::string *why) {
  std::string name(leaf.name), path = object + "." + name;
  if (name.empty() || !leaf.has_value)
    return Refuse(why, "\"" + name + (leaf.has_value ? "=" + std::string(leaf.value) : "") +
                           "\" is no NAME=VALUE: name the leaf and its value");
  if (name.find('.') != name.npos) /* its op function would not be called, or not know it */
    return Refuse(why, "\"" + name + "\" is no name: set takes the parameters of one object");
  unsigned kind = path.size() <= kFrameText ? KindOf(path) : 0;
  if (kind == 0) return RefuseUnknown(why, path);
  if (kind != LEAF)
    return Refuse(why, "set needs a parameter, \"" + path + "\" is " + KindName(kind));
  if (Attribute(path, "writable") == "0")
    return Refuse(why, "\"" + path + "\" is read-only; \"cfgcmd sset\" writes a status by hand");
  if (leaf.value.size() > AMS_VALUE_MAX)
    return Refuse(why, "the value of \"" + path + "\" is " + std::to_string(leaf.value.size()) +
                           " bytes, at most " + std::to_string(AMS_VALUE_MAX) + " can be");
  std::string form = Attribute(path, "check");
  if (form.empty()) form = Attribute(path, "type");
  if (CheckForm(path, form, leaf.value, why) != 0) return -1;
  plan->paths.push_back(path);
  return 0;
}

int CheckLeaves(Plan *plan, std::string *why) {
  std::string_view rest = plan->value;
  if (rest.empty()) return Refuse(why, "set needs a value: cfgcmd set PATH VALUE");
  for (Leaf leaf; NextLeaf(&rest, &leaf);)
    if (CheckLeaf(plan->url, leaf, plan, why) != 0) return -1;
  return 0;
}

/* Whether the framework can find an op function for `url` itself: its own or that of its array.
   Requests that need one are served from the store where there is none. */
bool HasOp(const std::string &url) {
  if (!Attribute(url, "op").empty()) return true;
  std::string parent = Parent(url);
  return Attribute(parent, "type") == "array" && !Attribute(parent, "op").empty();
}

bool NeedsOp(const Plan &plan, const Command &command, unsigned kind) {
  return !plan.leaf.empty() || (command.traits & SETS) != 0 || kind == ARRAY;
}

/* The objects and arrays right below `url`. */
std::vector<std::string> NodesBelow(const std::string &url) {
  std::vector<std::string> nodes = Children(url);
  auto is_leaf = [](const std::string &node) { return KindOf(node) == LEAF; };
  nodes.erase(std::remove_if(nodes.begin(), nodes.end(), is_leaf), nodes.end());
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
    bool bare_array = KindOf(node) == ARRAY && Attribute(node, "op").empty();
    if (module.empty() || bare_array)
      FindAsks(node, module, asks);
    else if (HasOpBelow(node))
      asks->push_back({module, node});
  }
}

void FindModule(Plan *plan, const Command &command, unsigned kind) {
  char module[TDS_NAME_SIZE];
  if ((command.traits & STORE_ONLY) != 0) return;
  if (NeedsOp(*plan, command, kind) && !HasOp(plan->url)) return;
  if (ams_desk_mod(plan->url.c_str(), module, sizeof module) == 0)
    plan->module = module;
  else if (plan->leaf.empty() && (command.traits & READS) != 0)
    FindAsks(plan->url, "", &plan->asks);
}

int CheckFrame(const Plan &plan, std::string *why) {
  if (plan.module.empty() || plan.value.size() <= kFrameText) return 0;
  return Refuse(why, "the values are " + std::to_string(plan.value.size()) +
                         " bytes with their names, a request to " + plan.module +
                         " carries 255: set fewer or shorter ones");
}

}  // namespace

int PlanRequest(const DbmgrRequest &request, Plan *plan, std::string *why) {
  const Command *command = FindCommand(request.command);
  if (command == nullptr)
    return Refuse(why, "unknown command " + std::to_string(request.command) +
                           ": is the client of this gateway?");
  plan->command = request.command;
  plan->url = Bare(request.url);
  if (plan->url.size() > kFrameText)
    return Refuse(why, "the path is " + std::to_string(plan->url.size()) +
                           " bytes, at most 255 can be: check it");
  bool another = !plan->url.empty() && plan->url.back() == '.';
  unsigned kind = another ? 0 : KindOf(plan->url);
  if (kind == 0) return RefuseUnknown(why, plan->url);
  if ((kind & command->takes) == 0)
    return Refuse(why, std::string(command->name) + " needs " + command->needs + ", \"" +
                           plan->url + "\" is " + KindName(kind));

  if ((command->traits & SETS) != 0) {
    plan->value = request.value;
    if (CheckLeaves(plan, why) != 0) return -1;
  } else if (kind == LEAF) { /* leaves travel as names in their object's request */
    plan->leaf = plan->url;
    plan->url = Parent(plan->leaf);
    plan->value = plan->leaf.substr(plan->url.size() + 1);
  }
  FindModule(plan, *command, kind);
  return CheckFrame(*plan, why);
}
