// The voice service: its start, its lines, and the voice path between the voice stack and the
// modem. All on the thread of "sysmgr:capabinfo".
#pragma once

#include "ams_common_api.h"

/* Serves every name of the voice service that has no handler of its own: tells the cases apart by
   op and path. */
int FuncHandleVoip(OpFuncArg *arg);

int FuncServVoipLineStats(OpFuncArg *arg);
int FuncServVoipIADDiag(OpFuncArg *arg);
int FuncServVoipPhyTest(OpFuncArg *arg); /* FuncServVoipSimulateTest, too */
int FuncServAction(OpFuncArg *arg);
