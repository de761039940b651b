// Small wrappers over the store: each returns the store's result, and texts become the request's
// reply.
#pragma once

#include "appt_request.h"

int AMS_Appt_Addobj(MsgArg *arg);
int AMS_Appt_Delobj(MsgArg *arg);
int AMS_Appt_Getattr(MsgArg *arg);
int AMS_Appt_Getidxes(MsgArg *arg);
int AMS_Appt_Setattr(MsgArg *arg);
int AMS_Appt_Savetree(MsgArg *arg);
int AMS_Appt_Setleaf(MsgArg *arg);
