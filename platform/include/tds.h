// The board's message runtime: named endpoints, module threads, messages, timers, notifications,
// and the counted heap.
//
// An endpoint is a module ("sysmgr:devInfo") or a process as a whole ("sysmgr"); its name has 1 to
// 63 bytes, no "/", and no "." in front: what is none is nobody's name. Messages carry an id and 0
// to TDS_PAYLOAD_MAX bytes, arrive whole, and in the order in which one thread sent them. Unless
// told otherwise, a call may come from any thread.
#pragma once

#include <stddef.h>
#include <stdint.h>

enum {
  TDS_NAME_SIZE = 64,                 /* an endpoint's name with its NUL */
  TDS_PAYLOAD_MAX = 64 * 1024 * 1024, /* bytes a message or an answer may carry */
  TDS_TIMERS = 16,                    /* timers a module has: 0 .. 15 */
  TDS_SYN_LIMIT = 10000,              /* ms that SendMsg_syn_lib waits at most */
  TDS_MSG_INIT = 0x101,               /* first message of every module; no payload */
  TDS_MSG_TIMER = 0x200,              /* + n: timer n has expired; no payload */
};

#ifdef __cplusplus
extern "C" {
#endif

/* Handles one message. `data` (8-byte aligned, NULL when `len` is 0) belongs to the runtime and is
   valid until the handler returns. One that std::bad_alloc leaves is over there: a level-5 record,
   and a call is refused; the module goes on. */
typedef void (*MsgHandler)(int32_t id, const void *data, uint32_t len);

/* One row of a message table; {0, NULL} ends the table. */
struct MsgEntry {
  uint32_t id;
  MsgHandler handler;
};

/* One row of the module table; an all-zero row ends it. */
struct ModuleEntry {
  const char *name;
  uint32_t reserved[2]; /* zero in every row */
  const struct MsgEntry *table;
};

/* Exported by the program: messages to the process as a whole. */
extern const struct MsgEntry prosCtlMsgTab[];

/* Makes the endpoints of `modules` and of the process (the first name up to its colon), then
   starts one thread for each; each handles message 0x101 first, then its messages one at a time.
   A message whose id has no row is dropped with a level-2 record; the ids of the init message and
   of the timers come from the runtime alone, whoever else sends one is refused. `modules` must
   outlive the process. Call once, from the main thread. 0, or -1 (logged): a name is taken, or no
   thread. */
int SysInit(const struct ModuleEntry *modules);

/* Sends `len` bytes to endpoint `dest` and returns without waiting for them to be handled. When the
   receiver's queue is full, waits up to 2 s for room, and after that in vain no more until it takes
   messages again. 0, or -1 (logged at level 4, the message is lost): no such endpoint, it is gone
   or has no room for more senders, its queue is full, `len` is too large, or `id` is the runtime's
   own. */
int SendMsg(uint32_t id, const void *data, uint32_t len, const char *dest);

/* As SendMsg, but always waits for room, then waits for the answer that the receiver gives with
   SynAckData_lib, TDS_SYN_LIMIT from the start at most. On 0 `*reply` is a heap block of
   `*reply_len` bytes with one zero byte behind them, which the caller gives back with __tds_free
   (NULL when the answer is empty). On -1 (logged) they are NULL and 0, at once but for the last: no
   such endpoint, it is the calling thread's own, it died while it was waited for, no handler
   answered, the answer could not be sent, or the time is over. A late answer is dropped. */
int SendMsg_syn_lib(uint32_t id, const void *data, uint32_t len, const char *dest, void **reply,
                    uint32_t *reply_len);

/* Answers the synchronous message in work on this thread, whose sender is `dest`. Only inside a
   message handler. 0, or -1 (logged): there is none, it came from somebody else, it was answered
   before, its sender is gone, or `len` is too large; a sender that gets no other answer from the
   handler is refused when it returns. `id` goes back with the answer. */
int SynAckData_lib(const void *data, uint32_t len, uint32_t id, const char *dest);

/* Copies a name into `name` (`size` bytes, cut and terminated): Self the endpoint of the calling
   thread, Self_ThreadName the same (a module's endpoint and its thread share the name), Sender that
   of the sender of the message in work ("" outside a handler). A thread that is no module's has
   the process's. */
void tds_self(char *name, size_t size);
void tds_self_thread_name(char *name, size_t size);
void tds_sender(char *name, size_t size);

/* Starts timer `timer` of the calling module, or starts it anew: after `ms` milliseconds the module
   gets message 0x200 + timer, once. Module threads only. 0, or -1 (logged). */
int SetTimer(int timer, uint32_t ms);

/* Stops a timer; an expiry that was not handled yet is dropped too. Module threads only. */
int KillTimer(int timer);

/* Asks for notification `id` of endpoint `publisher` for the calling module; holds for this and
   later runs of both sides, whichever starts first. Module threads only. 0, or -1 (logged): also
   when `publisher` can be no name. */
int TDS_RegisterNotifyList(uint32_t id, const char *publisher);

/* Sends a notification of the calling module or process to everyone who asked for it, and to the
   calling module itself, once, when its own table has a row for `id`. Receivers that are gone or
   full are logged and passed over. 0 or -1 (logged). */
int TDS_NotifyRegistrant(uint32_t id, const void *data, uint32_t len);

/* Sleeps. */
void tds_delay(uint32_t ms);

/* The time of day: seconds since 1970 and milliseconds. */
void tds_gettime(int32_t *seconds, int32_t *milliseconds);

/* The counted heap: live blocks and bytes are kept by tag, a string that lives for ever and is
   the same one each time. NULL when there is no memory. __tds_realloc keeps the block's first tag
   unless `block` is NULL; __tds_free takes NULL; __tds_strndup copies `length` bytes, whatever they
   are, and puts a NUL behind them.
 */
void *__tds_malloc(size_t size, const char *tag);
void *__tds_realloc(void *block, size_t size, const char *tag);
void __tds_free(void *block);
char *__tds_strdup(const char *text, const char *tag);
char *__tds_strndup(const char *text, size_t length, const char *tag);

/* Prints the live blocks and bytes by tag on standard output, and their sums as "total". */
void tds_show_malloc(void);

#ifdef __cplusplus
}

template <size_t N>
void Self(char (&name)[N]) {
  tds_self(name, N);
}
template <size_t N>
void Self_ThreadName(char (&name)[N]) {
  tds_self_thread_name(name, N);
}
template <size_t N>
void Sender(char (&name)[N]) {
  tds_sender(name, N);
}
#endif
