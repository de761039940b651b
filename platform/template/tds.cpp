// The board's message runtime and counted heap; see platform/include/tds.h. None of it is there
// yet.
#include "tds.h"

#include "refuse.h"

namespace {

/* No name is known: the empty one. */
void NoName(char *name, size_t size) {
  if (size > 0) name[0] = '\0';
}

}  // namespace

int SysInit(const struct ModuleEntry *) { REFUSE(-1); }

int SendMsg(uint32_t, const void *, uint32_t, const char *) { REFUSE(-1); }

int SendMsg_syn_lib(uint32_t, const void *, uint32_t, const char *, void **reply,
                    uint32_t *reply_len) {
  *reply = nullptr;
  *reply_len = 0;
  REFUSE(-1);
}

int SynAckData_lib(const void *, uint32_t, uint32_t, const char *) { REFUSE(-1); }

void tds_self(char *name, size_t size) {
  NoName(name, size);
  REFUSE();
}

void tds_self_thread_name(char *name, size_t size) {
  NoName(name, size);
  REFUSE();
}

void tds_sender(char *name, size_t size) {
  NoName(name, size);
  REFUSE();
}

int SetTimer(int, uint32_t) { REFUSE(-1); }

int KillTimer(int) { REFUSE(-1); }

int TDS_RegisterNotifyList(uint32_t, const char *) { REFUSE(-1); }

int TDS_NotifyRegistrant(uint32_t, const void *, uint32_t) { REFUSE(-1); }

void tds_delay(uint32_t) { REFUSE(); }

void tds_gettime(int32_t *seconds, int32_t *milliseconds) {
  *seconds = *milliseconds = 0;
  REFUSE();
}

void *__tds_malloc(size_t, const char *) { REFUSE(nullptr); }

void *__tds_realloc(void *, size_t, const char *) { REFUSE(nullptr); }

void __tds_free(void *block) {
  if (block != nullptr) REFUSE(); /* NULL is all that there can be */
}

char *__tds_strdup(const char *, const char *) { REFUSE(nullptr); }

char *__tds_strndup(const char *, size_t, const char *) { REFUSE(nullptr); }

void tds_show_malloc(void) { REFUSE(); }
