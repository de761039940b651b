// The agent framework: from a data-base manager's request to calls of the op functions and the
// acknowledgement, with the small store and log helpers that modules share.
//
// The calls run on the module thread that handles the request; one request is in work a thread.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "ams_print.h"
#include "ams_store.h"
#include "tds.h"

/* ---- log records ---- */

/* The compiled file as logs name it: "source/devinfo_func" for source/devinfo_func.cpp. */
constexpr int AmsSourceLength(const char *file) {
  int length = 0, dot = -1;
  for (; file[length] != '\0'; ++length)
    if (file[length] == '.' && file[length + 1] == 'c') dot = length;
  return dot < 0 ? length : dot;
}

/* Makes one whole record; `format` is printf's. The arguments must have no side effects: they are
   not evaluated when the record is not printed. */
#define AMS_PRINT(level, ...)                                                               \
  do {                                                                                      \
    if (!AMS_PrintWanted(level)) break;                                                     \
    __AMS_PrintHead(level);                                                                 \
    __AMS_Print(level, __VA_ARGS__);                                                        \
    __AMS_Print(level, "  @P:%.*s,L:%d.\n", AmsSourceLength(__FILE__), __FILE__, __LINE__); \
    __AMS_PrintEnd(level);                                                                  \
  } while (0)

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

enum : uint32_t { APPT_CODE_REQUEST = 1, APPT_CODE_RESULT = 3, APPT_CODE_RESULT_VALUE = 4 };

enum {
  APPT_HEAD_SIZE = 12,     /* msgChainId, cmdType, code */
  APPT_ACK_HEAD_SIZE = 16, /* the same and ackRet */
};

/* 32-bit little-endian words of the frames, whatever the host's byte order. */
uint32_t appt_GetWord(const void *bytes);
void appt_PutWord(void *bytes, uint32_t word);

/* One request in work. Zeroed, then filled by appt_FillMsgArg. */
struct MsgArg {
  uint32_t recvLen;
  uint32_t rLen;      /* reply bytes with the NUL; 0: no reply text */
  char *rBuf;         /* heap; owned by the request until the acknowledgement frees it */
  const uint8_t *raw; /* the received bytes; cmdType is read from them */
  char fucName[128];  /* op function of the URL */
  const char *url;    /* the node's, without a "." behind it: into raw, or node */
  const char *value;  /* into raw; NULL when the value length is 0 */
  uint8_t urlLen, valueLen;
  char node[AMS_PATH_SIZE]; /* the url of a request that has a "." behind it */
};

/* Points `arg` into the frame. 0, or -1 (logged at level 4) when the frame is short, its lengths do
   not fit or a text is not terminated; `arg` has no url then. Bytes behind the frame are ignored.
 */
int appt_FillMsgArg(MsgArg *arg, const void *frame, uint32_t len);

/* Runs a filled request: the result for ackRet; the reply, if any, in rBuf and rLen. */
int appt_RunRequest(MsgArg *arg);

/* Calls the op function that fucName names: its result; 1 for a NULL handler; -1 when the name is
   empty or in no table, and when a command of the op function was not run (see cfgSystemCmd). */
int appt_Do_OpFunc(MsgArg *arg);

int appt_Do_Obj_Data(MsgArg *arg);
int appt_Do_Obj_NoData(MsgArg *arg);
int appt_Do_Array(MsgArg *arg);

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

/* ---- leaf lists ---- */

/* One leaf of a "set" or "get" list, in order of the text. */
struct LeafNode {
  /* Text before "=", or the whole piece, cut (logged) to 64 bytes. "" for a longer name with a
     value: cut, it might be another leaf's. */
  char leafName[AMS_NAME_SIZE];
  char *leafValue; /* heap; NULL when there is none */
  char *rBuf;      /* heap; the leaf's reply text */
  LeafNode *next;
};

/* Parses pieces separated by byte 0x03. NULL when there is no piece or no memory; released with
   appt_FreeLeafList. */
LeafNode *appt_ParseLeafList(const char *value);
void appt_FreeLeafList(LeafNode *list);

/* ---- store wrappers: each returns the store's result; texts become the request's reply ---- */

int AMS_Appt_Addobj(MsgArg *arg);
int AMS_Appt_Delobj(MsgArg *arg);
int AMS_Appt_Getattr(MsgArg *arg);
int AMS_Appt_Getidxes(MsgArg *arg);
int AMS_Appt_Setattr(MsgArg *arg);
int AMS_Appt_Savetree(MsgArg *arg);
int AMS_Appt_Setleaf(MsgArg *arg);

/* ams_get_idxes into a heap text of any length; its result in `result`. NULL: no memory. */
char *appt_ReadIndexes(const char *url, const char *tag, int *result);

/* Logs one record of at most 171 bytes at level 1 and to syslog with priority `logItem`. */
void AMS_Log_Add(int32_t logType, int32_t logItem, const char *format, ...)
    __attribute__((format(printf, 3, 4)));
