// The op functions of "InternetGatewayDevice.Services.X_KVO_ShortMsg.": lists, deleting, sending
// and USSD. Handlers for the FUNC table; each waits for the modem.
#pragma once

#include "ams_common_api.h"

int FuncServShortMsg(OpFuncArg *arg);
int FuncServShortMsgSend(OpFuncArg *arg);
int FuncServShortMsgUssdSend(OpFuncArg *arg);
