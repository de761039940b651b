// Forms of values. A parameter's "check" attribute names the form that a value needs to be put into
// a shell line as it is; the others have the form of their type. What has another form is refused
// here, since nobody behind checks it.
#pragma once

#include <string>
#include <string_view>

/* Whether a value of the parameter `path` has the form, a "check" or a type. 0, or -1 with one line
   in `why`. Any thread. */
int CheckForm(const std::string &path, const std::string &form, std::string_view value,
              std::string *why);

/* Set before the first value is checked (--trust-values): takes any. */
extern bool trust_values;
