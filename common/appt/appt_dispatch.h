// From a request to the op functions and back to its result and reply.
#pragma once

#include "appt_request.h"

/* Whether the framework knows the command, for any type of node. Any thread. */
bool appt_HasCommand(uint32_t command);

/* Runs a filled request: the result for ackRet; the reply, if any, in rBuf and rLen. */
int appt_RunRequest(MsgArg *arg);

/* Calls an op function: its result; -1 (logged) when it had no memory. */
int appt_CallHandler(OpFunc handler, OpFuncArg *op);

/* Calls the op function that fucName names: its result; 1 for a NULL handler; -1 when the name is
   empty or in no table, and when a command of the op function was not run (see cfgSystemCmd). */
int appt_Do_OpFunc(MsgArg *arg);

/* Steps of it, on the request's thread: a node that is no array, with leaves in the request and
   without; an array. 0 or the result of what failed. */
int appt_Do_Obj_Data(MsgArg *arg);
int appt_Do_Obj_NoData(MsgArg *arg);
int appt_Do_Array(MsgArg *arg);
