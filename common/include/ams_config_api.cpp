// Parameter access for the op functions: status writes. What needs no data model is
// ams_config_util.cpp's.
#include "ams_config_api.h"

#include "ams_common_api.h"

int cfgStatusSetStr(const char *path, const char *val) {
  if (path == nullptr || val == nullptr) {
    AMS_PRINT(4, "%s: path or val is NULL.\n", "cfgStatusSetStr");
    return -1;
  }
  AMS_PRINT(1, "%s: path %s val %s\n", "cfgStatusSetStr", path, val);
  return ams_sset_node_value(gptXmlTrees->root, path, val);
}
