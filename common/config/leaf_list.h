// The leaves of a request or an answer, "a=b" and "c=d" with the separator between them, one after
// the other. Any thread.
#pragma once

#include <string_view>

/* Views into the list. A piece without a "=" is a name without a value. */
struct Leaf {
  std::string_view name, value;
  bool has_value;
};

/* Takes the first leaf off the list. False: there is none left. An empty piece is a leaf without a
   name. */
bool NextLeaf(std::string_view *list, Leaf *leaf);
