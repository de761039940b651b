// What the program exports to the runtime, the print service and the agent framework: its modules,
// their print levels and the FUNC tables in the order in which they are searched.
#include "button_thread.h"
#include "capabinfo_thread.h"
#include "devinfo_func.h"
#include "devinfo_thread.h"
#include "mgtsrvr_func.h"
#include "mgtsrvr_thread.h"
#include "services_func.h"
#include "sup_main.h"

PrtMapEntry DF_PRT_MAP[] = {
    {"default", 3},        {"sysmgr:devInfo", 3},     {"sysmgr:capabinfo", 3},
    {"sysmgr:mgtsrvr", 3}, {"sysmgr:button_proc", 3}, {nullptr, 0},
};

const OpFuncEntry *const kFuncTables[] = {
    kDevInfoFuncTable,
    kCapabInfoFuncTable,
    kMgtSrvrFuncTable,
    nullptr,
};

const ModuleEntry kSysmgrModules[] = {
    {"sysmgr:devInfo", {0, 0}, kDevInfoMsgTable},
    {"sysmgr:capabinfo", {0, 0}, kCapabInfoMsgTable},
    {"sysmgr:mgtsrvr", {0, 0}, kMgtSrvrMsgTable},
    {"sysmgr:button_proc", {0, 0}, kButtonMsgTable},
    {nullptr, {0, 0}, nullptr},
};
