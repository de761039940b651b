// Checks of values. A leaf's attributes in the data-model file say what it takes: "type", "min" and
// "max", "values", and "check", which names the form that a value needs to be put into a shell line
// as it is. What does not fit is refused here, since nobody behind checks it.
#pragma once

#include <string>

#include "store_desk.h"

/* Whether the leaf takes `*value`, which becomes what the store holds: "true" is 1. 0, or -1 with
   one line in `why`, which names leaf, value and what fits. Any thread. */
int CheckValue(const AmsDeskLeaf &leaf, std::string *value, std::string *why);

/* Set before the first value is checked (--trust-values): takes any, as it is. */
extern bool trust_values;
