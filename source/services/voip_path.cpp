// The start of the voice service, and its voice path; see voip_path.h.
#include "voip_path.h"

#include <unistd.h>

#include <cstring>

#include "ams_common_api.h"
#include "ams_config_api.h"
#include "ams_config_shell.h"
#include "op_values.h"

namespace {

#define IS_VOIP VOIP_SERVICE "X_KVO_Is_Voip."

int has_lte = 0; /* as at the start */
int previous_selection = 0;

/* What cannot be read counts as 1: such a gateway has the voice stack alone. */
int Selection() { return LeafInt(IS_VOIP "X_KVO_Voip_select", 1); }

/* ---- the start ---- */

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
  const char *node = VOIP_PROFILE "1.DigitMap";
  char plan[1024] = "";
  (void)ams_mxml_get_leaf_value(node, plan); /* without the node the write says so */
  if (plan[0] != '\0') return;
  AMS_PRINT(3, "voip init, use the default digital map!\n");
  (void)cfgStatusSetStr(node, kDialPlan); /* logged by the store; calls go out without a plan */
}

/* ---- the path ---- */

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
    {1, 1, 0, {kIsVoipRunning, kVoipChanged, kVoiceOverLte}},
    {1, 0, kAny, {kStartLte, kVoiceOverLte}},
    {2, 1, 1, {kBackToVoip}},
    {2, 1, 0, {kIsVoipRunning, kVoipChanged}},
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

}  // namespace

void VoipStart() {
  has_lte = LeafInt(IS_VOIP "X_KVO_has_lte");
  if (has_lte != 0) KeepSelection();
  if (LeafInt(IS_VOIP "X_KVO_Voip_Enable") != 1 || !StackIsThere()) return;
  FillDialPlan();
  AMS_PRINT(3, "voip init complete OK!\n");
}

void VoipSwitchPath() {
  if (has_lte == 0) {
    cfgShell(kVoipChanged);
    return;
  }
  char line[64] = "";
  int selection = Selection();
  (void)ams_mxml_get_leaf_value(VOIP_PROFILE "1.Line.1.Enable", line); /* no line: none enabled */
  AMS_PRINT(3, "@@@@@:%s=%d\n", IS_VOIP "X_KVO_Voip_select", selection);
  bool from_modem = previous_selection == 3 || previous_selection == 4;
  for (const char *command : FindPath(selection, strcmp(line, "Enabled") == 0, from_modem)->lines)
    if (command != nullptr) cfgShell(command);
  previous_selection = selection;
}
