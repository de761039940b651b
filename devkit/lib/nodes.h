// Nodes of the data-model store as strings. Any thread, once gptXmlTrees is set.
#pragma once

#include <string>
#include <string_view>
#include <vector>

/* The one form of a path that is shown and compared: without the "." that may be at its end. */
std::string Bare(std::string path);

/* Whether the path is `top`, or lies below it. */
bool IsAtOrBelow(std::string_view path, std::string_view top);

/* An attribute of the file, cut to 511 bytes; "" when there is no such node or attribute. */
std::string Attribute(const std::string &path, const char *name);

/* The paths right below `path`, in the file's order. */
std::vector<std::string> Children(const std::string &path);
