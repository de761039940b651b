// Checks of requests; see dbmgr_plan.h.
#include "dbmgr_plan.h"

#include <cstring>
#include <new>
#include <string_view>
#include <utility>

#include "ams_common_api.h"
#include "dbmgr_commands.h"
#include "dbmgr_forms.h"
#include "leaf_list.h"
#include "nodes.h"
#include "store_desk.h"

namespace {

constexpr size_t kFrameText = 255; /* a frame's lengths are one byte */

/* What kind of node `path` is, and its place; 0 when there is none. */
unsigned KindOf(const std::string &path, AmsDeskPlace *place) {
  if (ams_desk_place(path.c_str(), place) != 0) return 0;
  return place->is_leaf ? LEAF : place->is_array ? ARRAY : place->is_instance ? INSTANCE : OBJECT;
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

/* One leaf of a set, which goes to the end of the plan's. */
int CheckLeaf(const std::string &object, const Leaf &leaf, Plan *plan, std::string *why) {
  std::string name(leaf.name), path = object + "." + name;
  if (name.empty() || !leaf.has_value)
    return Refuse(why, "\"" + name + (leaf.has_value ? "=" + std::string(leaf.value) : "") +
                           "\" is no NAME=VALUE: name the leaf and its value");
  if (name.find('.') != name.npos) /* its op function would not be called, or not know it */
    return Refuse(why, "\"" + name + "\" is no name: set takes the parameters of one object");
  AmsDeskPlace place;
  unsigned kind = path.size() <= kFrameText ? KindOf(path, &place) : 0;
  if (kind == 0) return RefuseUnknown(why, path);
  if (kind != LEAF)
    return Refuse(why, "set needs a parameter, \"" + path + "\" is " + KindName(kind));
  AmsDeskLeaf limits;
  if (ams_desk_leaf(path.c_str(), &limits) != 0) {
    if (KindOf(path, &place) == 0) return RefuseUnknown(why, path); /* just gone */
    throw std::bad_alloc();
  }
  if (!limits.writable)
    return Refuse(why, "\"" + path + "\" is read-only; \"cfgcmd sset\" writes a status by hand");
  if (leaf.value.size() > AMS_VALUE_MAX)
    return Refuse(why, "the value of \"" + path + "\" is " + std::to_string(leaf.value.size()) +
                           " bytes, at most " + std::to_string(AMS_VALUE_MAX) + " can be");
  std::string value(leaf.value);
  if (CheckValue(limits, &value, why) != 0) return -1;
  if (!plan->value.empty()) plan->value += static_cast<char>(AMS_SEPARATOR);
  plan->value += name + "=" + value;
  plan->paths.push_back(path);
  return 0;
}

int CheckLeaves(std::string_view rest, Plan *plan, std::string *why) {
  if (rest.empty()) return Refuse(why, "set needs a value: cfgcmd set PATH VALUE");
  for (Leaf leaf; NextLeaf(&rest, &leaf);)
    if (CheckLeaf(plan->url, leaf, plan, why) != 0) return -1;
  return 0;
}

/* Whether the framework must find an op function, that of the node's object or of its array.
   Requests that need one are served from the store where there is none. */
bool NeedsOp(const Plan &plan, const Command &command, unsigned kind) {
  return !plan.leaf.empty() || (command.traits & SETS) != 0 || kind == ARRAY;
}

/* A node on the way down; `ask`: that of the module that serves it, or -1. */
struct Above {
  std::string path, module;
  int ask;
};

/* What a walk over objects and arrays finds, in the file's order. */
struct Asks {
  std::vector<Above> way;
  std::vector<Ask> found;
  std::vector<bool> has_op; /* of each of these */
};

/* An array without an op function of its own is passed over for its rows, as modules refuse such
   arrays. */
int VisitForAsks(const AmsDeskNode &node, void *context) {
  Asks *asks = static_cast<Asks *>(context);
  while (!asks->way.empty() && !IsAtOrBelow(node.path, asks->way.back().path)) asks->way.pop_back();
  Above here = {std::string(node.path), std::string(node.mod), -1};
  if (!asks->way.empty()) {
    const Above &above = asks->way.back();
    if (above.ask >= 0) {
      if (node.op) asks->has_op[static_cast<size_t>(above.ask)] = true;
      return 0;
    }
    if (here.module.empty()) here.module = above.module;
    if (!here.module.empty() && (node.op || strcmp(node.type, "array") != 0)) {
      here.ask = static_cast<int>(asks->found.size());
      asks->found.push_back({here.module, here.path});
      asks->has_op.push_back(node.op);
    }
  }
  asks->way.push_back(std::move(here));
  return 0;
}

/* The topmost nodes below `url`, which no module serves itself, that one serves by op functions. */
void FindAsks(const std::string &url, std::vector<Ask> *asks) {
  Asks all;
  /* The node was found before: what lacks now is memory, or the node is just gone. */
  if (ams_desk_walk(url.c_str(), false, VisitForAsks, &all) < 0) throw std::bad_alloc();
  for (size_t at = 0; at < all.found.size(); ++at)
    if (all.has_op[at]) asks->push_back(std::move(all.found[at]));
}

void FindModule(Plan *plan, const Command &command, unsigned kind, AmsDeskPlace place) {
  if ((command.traits & STORE_ONLY) != 0) return;
  if (NeedsOp(*plan, command, kind) && !place.has_op) return;
  if (!place.mod.empty())
    plan->module = std::move(place.mod);
  else if (plan->leaf.empty() && (command.traits & READS) != 0)
    FindAsks(plan->url, &plan->asks);
}

int CheckFrame(const Plan &plan, std::string *why) {
  if (plan.module.empty() || plan.value.size() <= kFrameText) return 0;
  return Refuse(why, "the values are " + std::to_string(plan.value.size()) +
                         " bytes with their names, a request to " + plan.module +
                         " carries 255: set fewer or shorter ones");
}

}  // namespace

int PlanRequest(DbmgrRequest request, Plan *plan, std::string *why) {
  const Command *command = FindCommand(request.command);
  if (command == nullptr)
    return Refuse(why, "unknown command " + std::to_string(request.command) +
                           ": is the client of this gateway?");
  plan->command = request.command;
  plan->url = Bare(std::move(request.url));
  if (plan->url.size() > kFrameText)
    return Refuse(why, "the path is " + std::to_string(plan->url.size()) +
                           " bytes, at most 255 can be: check it");
  bool another = !plan->url.empty() && plan->url.back() == '.';
  AmsDeskPlace place;
  unsigned kind = another ? 0 : KindOf(plan->url, &place);
  if (kind == 0) return RefuseUnknown(why, plan->url);
  if ((kind & command->takes) == 0)
    return Refuse(why, std::string(command->name) + " needs " + command->needs + ", \"" +
                           plan->url + "\" is " + KindName(kind));

  if ((command->traits & SETS) != 0) {
    if (CheckLeaves(request.value, plan, why) != 0) return -1;
  } else if (kind == LEAF) { /* leaves travel as names in their object's request */
    plan->leaf = std::move(plan->url);
    const size_t dot = plan->leaf.rfind('.');
    plan->url.assign(plan->leaf, 0, dot);
    plan->value.assign(plan->leaf, dot + 1);
  }
  FindModule(plan, *command, kind, std::move(place));
  return CheckFrame(*plan, why);
}
