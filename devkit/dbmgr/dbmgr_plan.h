// A client's request, checked against the tree and the limits of the frames before anything is
// sent: who serves it, and how it travels there. As all of the data-base manager but CheckValue it
// runs on the thread "dbmgr:dbmgt".
#pragma once

#include <cstdint>
#include <string>
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
  std::string before;             /* "set": ValuesOf them when it was handed on */
};

/* Checks `request`, and brings its path into the one form that all behind it have: no "." at the
   end. 0, or -1 with one line in `why`: what is wrong and what to do. */
int PlanRequest(DbmgrRequest request, Plan *plan, std::string *why);
