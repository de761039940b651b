// What a program exports to the platform layer, for those that have no modules of the daemon's: the
// print level of all, which is the program's to change, and no messages of the process's own.
#include "ams_print.h"
#include "tds.h"

PrtMapEntry DF_PRT_MAP[] = {{"default", 3}, {nullptr, 0}};
const MsgEntry prosCtlMsgTab[] = {{0, nullptr}};
