// What the desk's message runtime offers to the desk's own programs (the data-base manager, the
// command-line client, the stand-ins) and to tests, beside the board's interface.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "tds.h"

enum : uint32_t {
  /* Message of the runtime itself: an endpoint that this module has sent to is gone; the payload is
     its name with the NUL. Delivered to modules whose table has a row for it. */
  TDS_MSG_PEER_GONE = 0x102,

  /* A row of a message table with this id gets the messages from others that have no row. */
  TDS_MSG_ANY = 0xffffffff,
};

constexpr char kTdsFolder[] = "/var/run/tds";

/* Serves another endpoint name on the calling module's thread, with the same message table. Module
   threads only. 0 or -1 (logged). */
int tds_serve_also(const char *name);

/* Sends a message and waits for its answer, whose bytes `*reply` gets; "" without one. 0, or -1
   with errno ENOENT (no such endpoint), EPIPE (it died before it answered), ENOMSG (its handler did
   not answer), ETIMEDOUT, EAGAIN (its queue stayed full), EMSGSIZE (message or answer), EPERM (the
   id is the runtime's own), EDEADLK (the endpoint is the module's own), EUSERS (it has no room for
   more connections), ENOMEM. The limit counts from the start; only the wait for room, 2 s at most,
   may go past it. Logs nothing. Any thread. */
int tds_call(uint32_t id, const void *data, uint32_t len, const char *dest, uint32_t limit_ms,
             std::string *reply);

/* What the sender of the message in work had logged as failures (print_desk.h) while it did what it
   sent it for; "" when nothing, or outside a module's handler. Good until the handler returns. */
std::string_view tds_note();

/* The process that sent the message in work, or opened the connection that it came by; 0: it came
   from this module or from the runtime itself, or there is none. */
pid_t tds_sender_pid();

/* Takes back what the calling module asked for with TDS_RegisterNotifyList, in this or an earlier
   run. Module threads only. */
void tds_forget_notify(uint32_t id, const char *publisher);

/* Puts off the answer to the synchronous message in work, which otherwise counts as refused when
   its handler returns without one. Module threads only. Returns a token, 0 when there is none. */
uint64_t tds_hold_reply();

/* Gives the answer that was put off; same thread. Never waits. 0, or -1: the sender is gone, or the
   answer could not be sent (logged), then the sender is refused with the reason. */
int tds_reply_held(uint64_t token, const void *data, uint32_t len);

/* Gives memory that was allocated and freed again back to the kernel; what was large may else stay
   with the process for ever. Takes about a millisecond for 30 MB. Any thread. */
void tds_give_back();
