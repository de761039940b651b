// Nodes of the store; see nodes.h.
#include "nodes.h"

#include "ams_store.h"

std::string Bare(std::string path) {
  if (!path.empty() && path.back() == '.') path.pop_back();
  return path;
}

bool IsAtOrBelow(std::string_view path, std::string_view top) {
  return path.substr(0, top.size()) == top &&
         (path.size() == top.size() || path[top.size()] == '.');
}

std::string Attribute(const std::string &path, const char *name) {
  char value[512];
  if (ams_get_node_attr(gptXmlTrees->root, path.c_str(), name, value) != 0) return "";
  return value;
}

std::vector<std::string> Children(const std::string &path) {
  std::vector<std::string> children;
  char url[AMS_PATH_SIZE];
  AmsTree *root = gptXmlTrees->root;
  for (int more = ams_get_first_child(root, path.c_str(), url); more == 0;
       more = ams_get_next_child(root, children.back().c_str(), url))
    children.emplace_back(url);
  return children;
}
