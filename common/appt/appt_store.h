// Small wrappers over the store: each returns the store's result, and texts become the request's
// reply. Adding and deleting serve the dispatch. The others are the framework's for requests that
// no command of the frame has: for a handler of a message of its own, which fills a MsgArg itself:
// `url` and, where something is written, `value`; the rest zero. `rBuf` is the caller's then, for
// __tds_free. Without memory for a reply -1 (logged), of Addobj its result without one.
#pragma once

#include "appt_request.h"

int AMS_Appt_Addobj(MsgArg *arg);
int AMS_Appt_Delobj(MsgArg *arg);
int AMS_Appt_Getattr(MsgArg *arg);
int AMS_Appt_Getidxes(MsgArg *arg);
int AMS_Appt_Setattr(MsgArg *arg);
int AMS_Appt_Savetree(MsgArg *arg);
int AMS_Appt_Setleaf(MsgArg *arg);
