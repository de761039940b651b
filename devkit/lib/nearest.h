// The name that was meant by one that is none.
#pragma once

#include <string>
#include <string_view>
#include <vector>

/* That of `names` which `word` is a slip of the keys from, whatever the case of its letters, or the
   one that has the word in it; "" when none is. */
std::string Nearest(std::string_view word, const std::vector<std::string> &names);
