// The frame of an agent request and the leaf list in its value: bounded parsing, no store. For the
// framework, and for who speaks to it.
#pragma once

#include "ams_common_api.h"

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

/* Where a head has its words: 12 bytes of a request, 16 of an acknowledgement, with ackRet. */
enum {
  APPT_AT_CHAIN = 0,
  APPT_AT_COMMAND = 4,
  APPT_AT_CODE = 8,
  APPT_HEAD_SIZE = 12,
  APPT_AT_RESULT = APPT_HEAD_SIZE,
  APPT_ACK_HEAD_SIZE = 16,
};

/* 32-bit little-endian words of the frames, whatever the host's byte order. Any thread. */
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

/* One leaf of a "set" or "get" list, in order of the text. */
struct LeafNode {
  /* Text before "=", or the whole piece, cut (logged) to 64 bytes. "" for a longer name with a
     value: cut, it might be another leaf's. */
  char leafName[AMS_NAME_SIZE];
  char *leafValue; /* heap; NULL when there is none */
  char *rBuf;      /* heap; the leaf's reply text */
  LeafNode *next;
};

/* Parses pieces separated by byte 0x03. 0: `*list` has them, NULL when there is none; released with
   appt_FreeLeafList. -1 (logged): there is no memory. */
int appt_ParseLeafList(const char *value, LeafNode **list);
void appt_FreeLeafList(LeafNode *list);
