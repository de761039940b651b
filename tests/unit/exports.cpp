// What a program exports to the platform layer, for tests that need no modules.
#include "ams_print.h"
#include "tds.h"

PrtMapEntry DF_PRT_MAP[] = {{"default", 3}, {nullptr, 0}};
const MsgEntry prosCtlMsgTab[] = {{0, nullptr}};
