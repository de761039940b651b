// What the framework and the modules share: the tables' start, the trace switch, the frames' words,
// and the log. The receive handler is in appt_receive.cpp.
#include "ams_common_api.h"

#include <syslog.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

std::atomic<int> trace_on{0};

}  // namespace

void appt_InitFuncTable(const OpFuncEntry *table) {
  for (const OpFuncEntry *row = table; row->name != nullptr; ++row) {
    OpFuncArg arg = {};
    arg.name = row->name;
    arg.op = TMF_INIT;
    if (row->handler != nullptr) (void)row->handler(&arg); /* one failing row stops no other */
  }
}

void appt_SetTrace(int on) { trace_on.store(on, std::memory_order_relaxed); }

int appt_Trace() { return trace_on.load(std::memory_order_relaxed); }

uint32_t appt_GetWord(const void *bytes) {
  const uint8_t *byte = static_cast<const uint8_t *>(bytes);
  return byte[0] | static_cast<uint32_t>(byte[1]) << 8 | static_cast<uint32_t>(byte[2]) << 16 |
         static_cast<uint32_t>(byte[3]) << 24;
}

void appt_PutWord(void *bytes, uint32_t word) {
  uint8_t *byte = static_cast<uint8_t *>(bytes);
  for (int i = 0; i < 4; ++i) byte[i] = static_cast<uint8_t>(word >> (8 * i));
}

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
