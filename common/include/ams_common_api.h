// The agent framework as modules see it: op functions and their tables, the frames of agent
// requests, and the receive handler, which turns a request into calls and an acknowledgement.
//
// The calls run on the module thread that handles the request; one request is in work a thread.
#pragma once

#include <cstdint>

#include "ams_print.h"
#include "ams_store.h"
#include "tds.h"

/* ---- op functions ---- */

enum { TMF_INIT = 0, TMF_GET = 1, TMF_SET = 2, TMF_ADD = 4, TMF_DEL = 8 };

/* What an op function is asked. The texts belong to the framework; they live until it returns. */
struct OpFuncArg {
  const char *name;         /* op function, as in the node's "op" attribute */
  int32_t op;               /* TMF_... */
  char path[AMS_PATH_SIZE]; /* the node; for TMF_ADD the new instance */
  char *value;              /* value text of the request, or NULL */
};

/* 0, or -1: refused. What a set or an add has changed in the store is taken back then. */
using OpFunc = int (*)(OpFuncArg *);

/* One row of a FUNC table; {NULL, NULL} ends it. A NULL handler accepts the name and does nothing.
 */
struct OpFuncEntry {
  const char *name;
  OpFunc handler;
  /* All that the handler does, where that is one of these; the framework does not need it, who
     describes the table does. */
  const struct Script *script = nullptr;
  const struct PortDaemon *daemon = nullptr;
};

/* Exported by the program: the FUNC tables in the order in which they are searched, NULL last. */
extern const OpFuncEntry *const FUNC_TABLES[];

/* Calls each row of `table` that has a handler once with TMF_INIT, in order (path "", value NULL).
 */
void appt_InitFuncTable(const OpFuncEntry *table);

/* ---- requests ---- */

enum : uint32_t {
  EV_APPT_MSG_ACKTO_AGT = 0x100003, /* acknowledgement, to the agent's message centre */
  EV_APPT_MSG_NO_OBJECT = 0x100004, /* the URL has no usable "type"; carries msgChainId only */
  EV_APPT_MSG_REQUEST = 0x100005,   /* agent request */
};
constexpr char APPT_ACK_PEER[] = "msgcenter:cAckAgt";

enum : uint32_t {
  APPT_CMD_GET = 1,
  APPT_CMD_SET = 2,
  APPT_CMD_ADD = 4,
  APPT_CMD_DEL = 8,
  APPT_CMD_LIST = 0x800,       /* instance numbers of an array */
  APPT_CMD_ATTR = 0x1000,      /* values with their attributes (change list) */
  APPT_CMD_REFRESH = 0x800000, /* call the op functions, answer nothing */
};

/* Whether the framework knows the command, for any type of node. Any thread. */
bool appt_HasCommand(uint32_t command);

enum : uint32_t { APPT_CODE_REQUEST = 1, APPT_CODE_RESULT = 3, APPT_CODE_RESULT_VALUE = 4 };

enum {
  APPT_HEAD_SIZE = 12,     /* msgChainId, cmdType, code */
  APPT_ACK_HEAD_SIZE = 16, /* the same and ackRet */
};

/* 32-bit little-endian words of the frames, whatever the host's byte order. */
uint32_t appt_GetWord(const void *bytes);
void appt_PutWord(void *bytes, uint32_t word);

/* The whole of an agent module's receive handler: trace, run, acknowledge. `handler` and `source`
   are the module's own names, for the heap tag and the log records. */
struct ApptModule {
  const char *handler;
  const char *source;
  bool logs_result; /* one module also logs each result */
};
void appt_MsgRevHandle(const ApptModule *module, int32_t id, const void *data, uint32_t len);

/* Message trace switch, 0 off: read by every agent module, set by the process-control thread. */
void appt_SetTrace(int on);
int appt_Trace();

/* Logs one record of at most 171 bytes at level 1 and to syslog with priority `logItem`. */
void AMS_Log_Add(int32_t logType, int32_t logItem, const char *format, ...)
    __attribute__((format(printf, 3, 4)));
