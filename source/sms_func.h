// The op functions of "InternetGatewayDevice.Services.X_KVO_ShortMsg.": lists, deleting, sending
// and USSD. Handlers for the FUNC table; each waits for the modem.
#pragma once

#include "op_rows.h"

/* How they begin: with a log line under a name of their own, which the field's log readers know. */
extern const OpForm kShortMsg, kShortMsgSend, kShortMsgUssdSend;

int FuncServShortMsg(OpFuncArg *arg);
int FuncServShortMsgSend(OpFuncArg *arg);
int FuncServShortMsgUssdSend(OpFuncArg *arg);
