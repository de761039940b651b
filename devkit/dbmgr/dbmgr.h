// The data-base manager's parts: a client's request is checked and becomes a plan; a plan is served
// from the store or routed to the module that serves its node.
//
// All of it runs on the thread "dbmgr:dbmgt".
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "dbmgr_proto.h"

/* A module that is to bring the values of a node and of all below it up to date. */
struct Ask {
  std::string module, url;
};

/* A request that was checked. */
struct Plan {
  uint32_t command = 0;
  std::string module;             /* who serves it; "": the store alone does */
  std::vector<Ask> asks;          /* whom the store has to wait for first: none with a module */
  std::string url, value;         /* as they travel to the module */
  std::string leaf;               /* full path when one leaf was asked for, else "" */
  std::vector<std::string> paths; /* "set": full paths of the leaves, in order */
  std::string before;             /* "set": ValuesOf it when it was handed on */
};

/* Checks `request` against the tree and the limits of the frames, and brings its path into the one
   form that all behind it have: no "." at the end. 0, or -1 with one line in `why`. */
int PlanRequest(const DbmgrRequest &request, Plan *plan, std::string *why);

/* Whether a value of the parameter `path` has a form: the one that its "check" attribute names, or,
   without one, its type. 0, or -1 with one line in `why`. Any thread. */
int CheckForm(const std::string &path, const std::string &form, std::string_view value,
              std::string *why);

/* Set before the first value is checked (--trust-values): takes any. */
extern bool trust_values;

/* What the leaves of a "set" hold now, in order; "" for other commands. */
std::string ValuesOf(const Plan &plan);

/* The refusal of a plan by `who` ("the store", a module), which said why in `log`. It also says
   what became of the parameters, or of `row`, the path of the new row that `who` told. */
DbmgrAnswer RefusedBy(const std::string &who, const Plan &plan, const char *log,
                      const std::string &row = "");

/* Serves a plan that has no module. */
DbmgrAnswer ServeFromStore(const Plan &plan);

/* Message handlers of the routing: a client's request, its question whom dbmgr waits for, a
   module's acknowledgement, its early word that a node has no usable type, and the end of a module.
 */
void RouteRequest(int32_t id, const void *data, uint32_t length);
void RouteWaits(int32_t id, const void *data, uint32_t length);
void RouteAcknowledgement(int32_t id, const void *data, uint32_t length);
void RouteNoObject(int32_t id, const void *data, uint32_t length);
void RoutePeerGone(int32_t id, const void *data, uint32_t length);
