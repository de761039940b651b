// The tables' start, the receive handler that the agent modules share (trace, run, acknowledge),
// the trace switch, and the log.
#include "ams_common_api.h"

#include <syslog.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "appt_dispatch.h"

namespace {

std::atomic<int> trace_on{0};

/* Records of the receive handler name the module's source, as each module has its own handler. */
#define APPT_PRINT(level, module, ...) AMS_PRINT_AT(level, (module)->source, __LINE__, __VA_ARGS__)

/* The traced frame may be anything: each text is printed only as far as the frame goes. */
void TraceText(const char *label, const uint8_t *data, uint32_t len, uint32_t at) {
  if (at >= len) return;
  const char *text = reinterpret_cast<const char *>(data + at);
  printf("\t#%s: %.*s\n", label, static_cast<int>(strnlen(text, len - at)), text);
}

void TraceBody(const uint8_t *data, uint32_t len, uint32_t code) {
  if (code == APPT_CODE_REQUEST && len > APPT_HEAD_SIZE) {
    uint32_t value = APPT_HEAD_SIZE + 1U + data[APPT_HEAD_SIZE] + 1U;
    TraceText("url", data, len, APPT_HEAD_SIZE + 1);
    if (value < len && data[value] != 0) TraceText("value", data, len, value + 1);
  }
  if (code != APPT_CODE_RESULT && code != APPT_CODE_RESULT_VALUE) return;
  if (len >= APPT_ACK_HEAD_SIZE)
    printf("\t#ackRet: %d\n", static_cast<int>(appt_GetWord(data + APPT_AT_RESULT)));
  if (code == APPT_CODE_RESULT_VALUE) TraceText("AckValue", data, len, APPT_ACK_HEAD_SIZE);
}

void TraceMessage(int32_t id, const uint8_t *data, uint32_t len) {
  char self[TDS_NAME_SIZE], sender[TDS_NAME_SIZE];
  int32_t seconds, milliseconds;
  Self(self);
  Sender(sender);
  tds_gettime(&seconds, &milliseconds);
  printf("\t#####MSGCENTER MESSAGE TRACE#####\n");
  printf("\t#selfSpid: %s\n", self);
  printf("\t#senderSpid: %s\n", sender);
  printf("\t#timeStamp:  %d:%d \n", seconds, milliseconds);
  printf("\t#eventId: 0X%x\n", static_cast<unsigned>(id));
  if (len >= APPT_HEAD_SIZE) {
    uint32_t code = appt_GetWord(data + APPT_AT_CODE);
    printf("\t#msgChainId: 0X%x\n", appt_GetWord(data + APPT_AT_CHAIN));
    printf("\t#cmdType: 0X%x\n", appt_GetWord(data + APPT_AT_COMMAND));
    printf("\t#code: 0X%x\n", code);
    TraceBody(data, len, code);
  }
  printf("\t###############END################\n");
}

void SendAck(const ApptModule *module, const void *frame, int32_t result, MsgArg *arg) {
  if (arg->rLen > TDS_PAYLOAD_MAX - APPT_ACK_HEAD_SIZE) {
    APPT_PRINT(4, module, "the reply of %u bytes is too large for a message, -1 is answered",
               arg->rLen);
    __tds_free(arg->rBuf);
    arg->rBuf = nullptr;
    arg->rLen = 0;
    result = -1;
  }
  uint32_t size = arg->rLen + APPT_ACK_HEAD_SIZE;
  uint8_t *record = static_cast<uint8_t *>(__tds_malloc(size, module->handler));
  if (record == nullptr) {
    char thread[32] = "";
    Self_ThreadName(thread);
    APPT_PRINT(5, module, "Appt:%s tds_malloc msg mem failed.", thread);
    AMS_Log_Add(0, 3, "Appt:%s tds_malloc msg mem failed.", thread);
    return;
  }
  memcpy(record, frame, APPT_HEAD_SIZE);
  appt_PutWord(record + APPT_AT_CODE, arg->rLen == 0 ? APPT_CODE_RESULT : APPT_CODE_RESULT_VALUE);
  appt_PutWord(record + APPT_AT_RESULT, static_cast<uint32_t>(result));
  if (module->logs_result)
    APPT_PRINT(1, module, "*((int *)pReturnMsg->data)=%d ;  ret= %d \n",
               static_cast<int>(appt_GetWord(record + APPT_AT_RESULT)), result);
  if (arg->rLen != 0) {
    /* an empty list answers one byte more than its text holds */
    size_t text = strnlen(arg->rBuf, arg->rLen);
    memset(record + APPT_ACK_HEAD_SIZE, 0, arg->rLen);
    memcpy(record + APPT_ACK_HEAD_SIZE, arg->rBuf, text);
  }
  (void)SendMsg(EV_APPT_MSG_ACKTO_AGT, record, size, kApptAckPeer); /* logged there */
  APPT_PRINT(1, module, "send EV_APPT_MSG_ACKTO_AGT to %s len %d.", kApptAckPeer,
             static_cast<int>(size));
  __tds_free(record);
}

}  // namespace

void appt_InitFuncTable(const OpFuncEntry *table) {
  for (const OpFuncEntry *row = table; row->name != nullptr; ++row) {
    OpFuncArg arg = {};
    arg.name = row->name;
    arg.op = TMF_INIT;
    /* one failing row stops no other */
    if (row->handler != nullptr) (void)appt_CallHandler(row->handler, &arg);
  }
}

void appt_MsgRevHandle(const ApptModule *module, int32_t id, const void *data, uint32_t len) {
  if (appt_Trace()) TraceMessage(id, static_cast<const uint8_t *>(data), len);
  MsgArg arg;
  bool filled = appt_FillMsgArg(&arg, data, len) == 0;
  if (len < APPT_HEAD_SIZE) return; /* nothing in it could be acknowledged */
  int32_t result = filled ? appt_RunRequest(&arg) : -1;
  SendAck(module, data, result, &arg);
  __tds_free(arg.rBuf);
}

void appt_SetTrace(int on) { trace_on.store(on, std::memory_order_relaxed); }

int appt_Trace() { return trace_on.load(std::memory_order_relaxed); }

void AMS_Log_Add(int32_t logType, int32_t logItem, const char *format, ...) {
  struct {
    int32_t type, item;
    char data[172];
  } record = {};
  record.type = logType;
  record.item = logItem;
  size_t size = 344;
  char *text = static_cast<char *>(__tds_malloc(size, "AMS_Log_Add"));
  while (text != nullptr) {
    va_list args;
    va_start(args, format);
    int length = vsnprintf(text, size, format, args);
    va_end(args);
    if (length >= 0 && static_cast<size_t>(length) < size) break;
    size *= 2;
    char *larger =
        length < 0 ? nullptr : static_cast<char *>(__tds_realloc(text, size, "AMS_Log_Add"));
    if (larger == nullptr) __tds_free(text);
    text = larger;
  }
  if (text == nullptr) return;
  size_t length = strlen(text);
  if (length > 0 && text[length - 1] == '\n') text[length - 1] = '\0';
  strncpy(record.data, text, sizeof(record.data) - 1);
  __tds_free(text);
  AMS_PRINT(1, "logType:%d, logItem:%d, data:%s\n", record.type, record.item, record.data);
  syslog(record.item, "%s", record.data);
}
