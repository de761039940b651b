// The voice service. The firmware's voice stack runs the calls and is driven through voipcmd, which
// reads the data model itself; here it is told what changed. On gateways with an LTE modem the
// voice path also moves between the stack and the modem's own voice.
//
// Commands are run without the log record of cfgSystemCmd but for the LED's.
#include "voip_func.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "ams_config_api.h"
#include "ams_config_shell.h"
#include "leaf_list.h"
#include "op_rows.h"
#include "op_values.h"

namespace {

#define VOICE   "InternetGatewayDevice.Services.VoiceService."
#define IS_VOIP VOICE "X_KVO_Is_Voip."
#define PROFILE VOICE "1.VoiceProfile."

constexpr char kVoiceChanged[] = "/usr/sbin/voipcmd vc";

bool init_done = false;
int has_lte = 0; /* as at the start */
int previous_selection = 0;

void Shell(const std::string &line) { (void)cfgShell(line.c_str()); /* logged there */ }

/* What cannot be read counts as 1: such a gateway has the voice stack alone. */
int Selection() { return LeafInt(IS_VOIP "X_KVO_Voip_select", 1); }

/* ---- start ---- */

/* A plan of the country's numbers. The quotes around it belong to it: the voice stack wants them.
 */
constexpr char kDialPlan[] =
    "\"[2-8]xxxxxxx|1[3458]xxxxxxxxx|01[3458]xxxxxxxxx|0xxxxxxxxxx|0311xxxxxxxx|037[179]xxxxxxxx|"
    "04[135]1xxxxxxxx|0432xxxxxxxx|051[0-9]xxxxxxxx|052[37]xxxxxxxx|053[12]xxxxxxxx|"
    "057[13-79]xxxxxxxx|059[15]xxxxxxxx|0731xxxxxxxx|075[457]xxxxxxxx|076[09]xxxxxxxx|"
    "0898xxxxxxxx|9xxxx|1[0124-9]x|118xxx|100xx|20x|400xxxxxxx|800xxxxxxx|955xx|58426x.|58427|"
    "1630[06]|99699[8*#]|[*#][*#0-9][0-9*]#x.#|##|**xx|x[0-9*].#|*xx*x.#|*xx#|x[0-9*].T\"";
static_assert(sizeof kDialPlan - 1 == 423);

void KeepSelection() {
  previous_selection = Selection();
  if (previous_selection == 1 || previous_selection == 2)
    cfgSystemCmd("/usr/syscfg/led.sh voip_select low");
  else
    cfgSystemCmd("/usr/syscfg/led.sh voip_select high");
}

/* The firmware loads and starts them; here they only have to be there. */
bool StackIsThere() {
  for (const char *file : {"/lib/ko/hi_khw.ko", "/lib/ko/hi_kvoip.ko", "/lib/ko/hi_kspi.ko",
                           "/lib/ko/hi_kslic.ko", "/usr/sbin/kvophone"})
    if (access(file, F_OK) != 0) {
      AMS_PRINT(3, "voip init complete failed(cause:%s file is non existent)!\n", file);
      return false;
    }
  return true;
}

void FillDialPlan() {
  const char *node = PROFILE "1.DigitMap";
  char plan[1024] = "";
  (void)ams_mxml_get_leaf_value(node, plan); /* without the node the write says so */
  if (plan[0] != '\0') return;
  AMS_PRINT(3, "voip init, use the default digital map!\n");
  (void)cfgStatusSetStr(node, kDialPlan); /* logged by the store; calls go out without a plan */
}

/* ---- voice path ---- */

constexpr int kAny = -1;

/* Over IP again, from the modem; over IP still; off the modem or on to it. */
constexpr char kBackToVoip[] = "/usr/syscfg/lte.sh voip&";
constexpr char kIsVoipRunning[] = "/usr/syscfg/lte.sh isvoiprun&";
constexpr char kStartLte[] = "/usr/syscfg/lte.sh start&";
/* The modem's own voice: over LTE first, or circuit-switched only. */
constexpr char kVoiceOverLte[] = "at-mngr AT+CVMOD=3";
constexpr char kCircuitVoice[] = "at-mngr AT+CVMOD=0";

/* What moves the voice path to a selection: the first row that fits. Selections 1 and 2 are voice
   over IP, 1 with the modem's own voice beside it; all others are the modem alone. */
struct PathRow {
  int selection;
  int line_on;    /* 1: line 1 is enabled */
  int from_modem; /* 1: the previous selection was 3 or 4 */
  const char *lines[3];
};

const PathRow kPaths[] = {
    {1, 1, 1, {kBackToVoip, kVoiceOverLte}},
    {1, 1, 0, {kIsVoipRunning, kVoiceChanged, kVoiceOverLte}},
    {1, 0, kAny, {kStartLte, kVoiceOverLte}},
    {2, 1, 1, {kBackToVoip}},
    {2, 1, 0, {kIsVoipRunning, kVoiceChanged}},
    {2, 0, kAny, {kStartLte}},
    {3, kAny, kAny, {kStartLte, kVoiceOverLte}},
    {kAny, kAny, kAny, {kStartLte, kCircuitVoice}},
};

const PathRow *FindPath(int selection, bool line_on, bool from_modem) {
  const PathRow *row = kPaths;
  auto fits = [](int wanted, int is) { return wanted == kAny || wanted == is; };
  while (!fits(row->selection, selection) || !fits(row->line_on, line_on) ||
         !fits(row->from_modem, from_modem))
    ++row; /* the last row fits everything */
  return row;
}

void SwitchVoicePath() {
  if (has_lte == 0) {
    Shell(kVoiceChanged);
    return;
  }
  char line[64] = "";
  int selection = Selection();
  (void)ams_mxml_get_leaf_value(PROFILE "1.Line.1.Enable", line); /* no line: none enabled */
  AMS_PRINT(3, "@@@@@:%s=%d\n", IS_VOIP "X_KVO_Voip_select", selection);
  bool from_modem = previous_selection == 3 || previous_selection == 4;
  for (const char *command : FindPath(selection, strcmp(line, "Enabled") == 0, from_modem)->lines)
    if (command != nullptr) Shell(command);
  previous_selection = selection;
}

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
  if (strcmp(parent, PROFILE "1.Line") == 0)
    AddLine(path);
  else if (strncmp(PROFILE, parent, strlen(parent)) == 0)
    AddAction(path);
  Shell(kVoiceChanged);
}

/* ---- line statistics and actions ---- */

/* The line whose statistics object `path` is; 0 for any other. */
int LineOfStats(const char *path) {
  if (strcmp(path, PROFILE "1.Line.1.Stats") == 0) return 1;
  return strcmp(path, PROFILE "1.Line.2.Stats") == 0 ? 2 : 0;
}

/* Runs one action of line `line`. False when no other may follow. */
bool RunAction(std::string_view name, int line) {
  if (name == "Reboot") Shell("/usr/sbin/voipcmd reset");
  if (name == "Unregister") Shell("/usr/sbin/voipcmd line_register -" + std::to_string(line));
  if (name == "Register") Shell("/usr/sbin/voipcmd line_register " + std::to_string(line));
  return name != "Register";
}

}  // namespace

void VoipStart() {
  has_lte = LeafInt(IS_VOIP "X_KVO_has_lte");
  if (has_lte != 0) KeepSelection();
  if (LeafInt(IS_VOIP "X_KVO_Voip_Enable") != 1 || !StackIsThere()) return;
  FillDialPlan();
  AMS_PRINT(3, "voip init complete OK!\n");
}

int FuncHandleVoip(OpFuncArg *arg) {
  switch (arg->op) {
    case TMF_INIT:
      if (!init_done) VoipStart();
      init_done = true;
      return 0;
    case TMF_SET:
      SwitchVoicePath();
      return 0;
    case TMF_ADD:
      ObjectAdded(arg->path);
      return 0;
    case TMF_DEL:
      Shell(kVoiceChanged);
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
    if (line != 0) Shell("/usr/sbin/voipcmd state " + std::to_string(line));
    tds_delay(500);
  }
  if (arg->op == TMF_SET && line != 0 && arg->value != nullptr &&
      strstr(arg->value, "ResetStatistics=") != nullptr)
    Shell("/usr/sbin/voipcmd reset_statistics " + std::to_string(line));
  return 0;
}

int FuncServVoipIADDiag(OpFuncArg *arg) {
  if (arg->op == TMF_SET) Shell("/usr/sbin/voipcmd diag_test");
  return 0;
}

/* One test of a phone port runs whichever of its two nodes is set. */
int FuncServVoipPhyTest(OpFuncArg *arg) {
  if (arg->op != TMF_SET) return 0;
  if (strstr(arg->path, VOICE "1.PhyInterface.1") != nullptr)
    Shell("/usr/sbin/voipcmd phy_test 1");
  else if (strstr(arg->path, VOICE "1.PhyInterface.2") != nullptr)
    Shell("/usr/sbin/voipcmd phy_test 2");
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
