// Frames on the runtime's sockets: a 16-byte head and the payload in one SOCK_SEQPACKET record. A
// payload that is too large for a socket buffer is a sealed memory file, which comes with a second
// record: so that the first one, which nearly always is all, is read without room for files.
#pragma once

#include <cstdint>
#include <memory>

#include "tds_desk.h"

enum class WireKind : uint16_t {
  HELLO,   /* first frame of a connection: the sender's endpoint name with its NUL */
  POST,    /* a message */
  CALL,    /* a message that waits for an answer */
  ANSWER,  /* the answer to the call with the same sequence number */
  REFUSED, /* that call got no answer, and no call on this connection will when the number is 0;
               the id is the reason, an errno */
  NOTE,    /* what the sender of the POST with the next sequence number had logged as failures */
};

struct WireHead {
  uint16_t magic;
  WireKind kind;
  uint32_t id;
  uint32_t sequence;
  uint32_t length; /* of the payload */
};

struct WireUnmap {
  size_t size;
  void operator()(void *map) const;
};

/* The last frame that was received with it; `data` points into its record, or is its large payload,
   which the user gives back when it is done with it: a thread that waits holds none. */
struct WireFrame {
  WireHead head;
  const void *data;
  std::unique_ptr<uint8_t[]> record; /* not cleared: its pages come as far as frames reach */
  std::unique_ptr<void, WireUnmap> large;
};

/* Sends one frame. 0, or -1 with errno (EAGAIN: the receiver's queue stayed full). `flags` as
   MSG_DONTWAIT. One thread sends on a socket: nothing may come between a head and its file. */
int WireSend(int fd, WireKind kind, uint32_t id, uint32_t sequence, const void *data,
             uint32_t length, int flags);

/* Receives one frame. 1; 0 at the end of the connection; -1 with errno, EBADMSG for a record that
   is no frame (the connection can go on), EINTR too. `announced` is the connection's own, zeros at
   first: the head of a large payload, until its file comes. Descriptors that came with a record are
   closed. */
int WireReceive(int fd, WireHead *announced, WireFrame *frame, int flags);

/* An AF_UNIX socket that listens as `name`, or is connected to it; -1 with errno. The other side
   must be a process of our own user, which the kernel tells: EACCES else. EAGAIN: it takes no
   connections; with `wait` that shows after the time that a sender waits. */
int WireListen(const char *name);
int WireConnect(const char *name, bool wait);

/* The process at the other end, as it was when it connected; -1: it is not of our own user. */
pid_t WirePeer(int fd);

/* Whether the name has its file, whoever made that. */
bool WireIsServed(const char *name);

/* Whether `name` can be an endpoint's name. */
bool WireNameFits(const char *name);

/* What an errno of the runtime means to whoever reads the log. */
const char *WireFault(int reason);
