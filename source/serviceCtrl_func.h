// Service access control: from which side, from which addresses and over which IP version the
// gateway's own services can be reached. All on the thread of "sysmgr:capabinfo".
#pragma once

#include "ams_common_api.h"
#include "webserver_func.h"

/* The ports of the web server, as the HTTP entries say. */
extern WebPorts WebPortList;

/* 1: the next build of the ACCEPT rules restarts the web server also when its ports stay as they
   are. Nothing in the daemon sets it; it is for modules that change the server's other settings. */
extern int WebRestartForced;

/* Handlers of "ServiceAccessControl." and of its list. Each returns 0 whatever the commands do. */
int FuncSCL(OpFuncArg *arg);
int FuncSrvLists(OpFuncArg *arg);

/* Flushes every chain and fills it from the data model. Returns 0. */
int SclRebuild();
