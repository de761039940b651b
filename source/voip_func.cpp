// The voice service. The firmware's voice stack runs the calls and is driven through voipcmd, which
// reads the data model itself; here it is told what changed, without the log record of
// cfgSystemCmd.
#include "voip_func.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "ams_config_shell.h"
#include "leaf_list.h"
#include "op_rows.h"
#include "voip_path.h"

namespace {

bool init_done = false;

/* ---- new lines and profiles ---- */

/* A codec list in the order in which the voice stack numbers it, not in that of the priorities. */
struct Codec {
  const char *name, *priority;
};
const Codec kCodecs[] = {{"G711U", "3"}, {"G711A", "1"}, {"G729", "4"}, {"G722", "2"}};

/* The store logs what it refuses; the rest of the line is made all the same. */
void SetBelow(const std::string &object, const char *leaf, const char *value) {
  (void)ams_set_node_value(gptXmlTrees->root, (object + leaf).c_str(), value);
}

/* There are two phone ports, so the last digit is the number. Line 2 gets port "0" on purpose: the
   voice stack knows the second port by it. */
void AddLine(const std::string &path) {
  char number = path.back();
  if (number == '1') SetBelow(path, ".PhyReferenceList", "1");
  if (number == '2') SetBelow(path, ".PhyReferenceList", "0");
  for (const Codec &codec : kCodecs) {
    char row[AMS_PATH_SIZE];
    if (ams_add_obj(gptXmlTrees->root, (path + ".Codec.List").c_str(), row) != 0) continue;
    SetBelow(row, ".Codec", codec.name);
    SetBelow(row, ".Priority", codec.priority);
  }
}

void AddAction(const std::string &path) {
  char row[AMS_PATH_SIZE];
  std::string array = path + ".X_KVO-ACTION";
  AMS_PRINT(1, "%s:arrayPath: %s", __func__, array.c_str());
  (void)ams_add_obj(gptXmlTrees->root, array.c_str(), row); /* logged by the store */
}

/* What is no line and lies on the way to the profiles, such as a profile, gets an action object. */
void ObjectAdded(const char *path) {
  char parent[AMS_PATH_SIZE];
  (void)COMMON_GetParentNode(path, parent); /* a new instance has one */
  if (strcmp(parent, VOIP_PROFILE "1.Line") == 0)
    AddLine(path);
  else if (strncmp(VOIP_PROFILE, parent, strlen(parent)) == 0)
    AddAction(path);
  cfgShell(kVoipChanged);
}

/* ---- line statistics and actions ---- */

/* The line whose statistics object `path` is; 0 for any other. */
int LineOfStats(const char *path) {
  if (strcmp(path, VOIP_PROFILE "1.Line.1.Stats") == 0) return 1;
  return strcmp(path, VOIP_PROFILE "1.Line.2.Stats") == 0 ? 2 : 0;
}

/* Runs one action of line `line`. False when no other may follow. */
bool RunAction(std::string_view name, int line) {
  if (name == "Reboot") cfgShell("/usr/sbin/voipcmd reset");
  if (name == "Unregister")
    cfgShell(("/usr/sbin/voipcmd line_register -" + std::to_string(line)).c_str());
  if (name == "Register")
    cfgShell(("/usr/sbin/voipcmd line_register " + std::to_string(line)).c_str());
  return name != "Register";
}

}  // namespace

int FuncHandleVoip(OpFuncArg *arg) {
  switch (arg->op) {
    case TMF_INIT:
      if (!init_done) VoipStart();
      init_done = true;
      return 0;
    case TMF_SET:
      VoipSwitchPath();
      return 0;
    case TMF_ADD:
      ObjectAdded(arg->path);
      return 0;
    case TMF_DEL:
      cfgShell(kVoipChanged);
      return 0;
    default:
      return 0;
  }
}

/* A get waits until the voice stack has written what it was asked for into the data model. A reset
   counts whatever it is set to. */
int FuncServVoipLineStats(OpFuncArg *arg) {
  int line = LineOfStats(arg->path);
  if (arg->op == TMF_GET) {
    if (line != 0) cfgShell(("/usr/sbin/voipcmd state " + std::to_string(line)).c_str());
    tds_delay(500);
  }
  if (arg->op == TMF_SET && line != 0 && arg->value != nullptr &&
      strstr(arg->value, "ResetStatistics=") != nullptr)
    cfgShell(("/usr/sbin/voipcmd reset_statistics " + std::to_string(line)).c_str());
  return 0;
}

int FuncServVoipIADDiag(OpFuncArg *arg) {
  if (arg->op == TMF_SET) cfgShell("/usr/sbin/voipcmd diag_test");
  return 0;
}

/* One test of a phone port runs whichever of its two nodes is set. */
int FuncServVoipPhyTest(OpFuncArg *arg) {
  if (arg->op != TMF_SET) return 0;
  if (strstr(arg->path, VOIP_SERVICE "1.PhyInterface.1") != nullptr)
    cfgShell("/usr/sbin/voipcmd phy_test 1");
  else if (strstr(arg->path, VOIP_SERVICE "1.PhyInterface.2") != nullptr)
    cfgShell("/usr/sbin/voipcmd phy_test 2");
  return 0;
}

/* The value has the leaves of the request as they came, "Register=1", with the separator of leaves
   between. They are taken from the last to the first, and a registration ends it: what stands
   before it in the request is passed over. */
int FuncServAction(OpFuncArg *arg) {
  if (arg->op != TMF_SET || arg->value == nullptr) return 0;
  int line = InstanceNumber(arg->path);
  std::vector<Leaf> leaves;
  std::string_view rest = arg->value;
  for (Leaf leaf; NextLeaf(&rest, &leaf);) leaves.push_back(leaf);
  for (auto leaf = leaves.rbegin(); leaf != leaves.rend(); ++leaf) {
    bool wanted = leaf->has_value && atoi(leaf->value.data()) == 1; /* ends at the separator */
    if (wanted && !RunAction(leaf->name, line)) break;
  }
  return 0;
}
