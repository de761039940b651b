// The runtime's sockets and the frames on them; see wire.h.
#include "wire.h"

#include <fcntl.h>
#include <linux/memfd.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

/* Some C libraries know neither the seals nor the call; these are the kernel's numbers. */
#ifndef F_ADD_SEALS
#define F_ADD_SEALS   1033
#define F_GET_SEALS   1034
#define F_SEAL_SHRINK 0x0002
#define F_SEAL_GROW   0x0004
#define F_SEAL_WRITE  0x0008
#endif

namespace {

constexpr uint16_t kMagic = 0x7D51;
constexpr uint32_t kInline = 32 * 1024; /* most that travels in the record itself */
constexpr uint32_t kCoalesced =
    1024; /* most that is copied behind the head: less than a message's pieces cost */
constexpr size_t kRecord = sizeof(WireHead) + kInline + 1; /* one more, to tell a longer one */
constexpr int kSendBuffer = 1024 * 1024; /* a queue's bound; the kernel may grant less */
constexpr int kSendWaitMs = 2000;        /* how long a sender waits for room */
constexpr struct timeval kSendWait = {kSendWaitMs / 1000, 0};
constexpr struct timeval kNoWait = {0, 1}; /* 0 would be for ever */
constexpr int kLooks = 50;                 /* for a name that may come free */
constexpr uint32_t kLookMs = 20;
constexpr int kPayloadSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;

union ControlBuffer {
  char bytes[CMSG_SPACE(sizeof(int))];
  struct cmsghdr align;
};

bool SocketAddress(const char *name, struct sockaddr_un *address) {
  *address = {};
  address->sun_family = AF_UNIX;
  int length = snprintf(address->sun_path, sizeof(address->sun_path), "%s/%s", kTdsFolder, name);
  return WireNameFits(name) && length < static_cast<int>(sizeof(address->sun_path));
}

int CloseKeepErrno(int fd) {
  int reason = errno;
  close(fd);
  errno = reason;
  return -1;
}

/* A memory file with the payload, sealed so that the receiver may trust its size. */
int PayloadFile(const void *data, uint32_t length) {
  int fd =
      static_cast<int>(syscall(SYS_memfd_create, "tds-payload", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  if (fd < 0) return -1;
  const char *next = static_cast<const char *>(data);
  while (length > 0) {
    ssize_t written = write(fd, next, length);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) break;
    next += written;
    length -= static_cast<uint32_t>(written);
  }
  if (length == 0 && fcntl(fd, F_ADD_SEALS, kPayloadSeals) == 0) return fd;
  return CloseKeepErrno(fd);
}

/* The file that alone came with a record, or -1; what else came is closed. */
int TakeFile(struct msghdr *message) {
  int file = -1;
  bool other = (message->msg_flags & MSG_CTRUNC) != 0;
  for (struct cmsghdr *part = CMSG_FIRSTHDR(message); part != nullptr;
       part = CMSG_NXTHDR(message, part)) {
    if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS) continue;
    for (size_t at = CMSG_LEN(0); at + sizeof(int) <= part->cmsg_len; at += sizeof(int)) {
      if (file >= 0) {
        close(file);
        other = true;
      }
      memcpy(&file, reinterpret_cast<const char *>(part) + at, sizeof file);
    }
  }
  return other && file >= 0 ? CloseKeepErrno(file) : file;
}

/* The payload stays where the sender put it: the seals say that it can neither change nor go. */
bool MapPayloadFile(int fd, WireFrame *frame) {
  struct stat status;
  uint32_t length = frame->head.length;
  int seals = fcntl(fd, F_GET_SEALS);
  if (seals < 0 || (seals & kPayloadSeals) != kPayloadSeals) return false;
  if (fstat(fd, &status) != 0 || status.st_size != static_cast<off_t>(length)) return false;
  void *map = mmap(nullptr, length, PROT_READ, MAP_SHARED | MAP_POPULATE, fd, 0);
  if (map == MAP_FAILED) return false;
  frame->large = {map, WireUnmap{length}};
  return true;
}

bool MayBeLarge(WireKind kind) {
  return kind == WireKind::POST || kind == WireKind::CALL || kind == WireKind::ANSWER;
}

/* Checks the received record and points the frame at its payload, unless that is to come. */
bool OpenFrame(WireFrame *frame, size_t size) {
  if (size < sizeof(WireHead)) return false;
  memcpy(&frame->head, frame->record.get(), sizeof(WireHead));
  const WireHead &head = frame->head;
  if (head.magic != kMagic || head.kind > WireKind::NOTE || head.length > TDS_PAYLOAD_MAX)
    return false;
  if (head.length > kInline && !MayBeLarge(head.kind)) return false;
  frame->data = head.length == 0 ? nullptr : frame->record.get() + sizeof(WireHead);
  return size - sizeof(WireHead) == (head.length > kInline ? 0 : head.length);
}

}  // namespace

void WireUnmap::operator()(void *map) const { munmap(map, size); }

bool WireNameFits(const char *name) {
  return name != nullptr && name[0] != '\0' && name[0] != '.' && strchr(name, '/') == nullptr &&
         strnlen(name, TDS_NAME_SIZE) < TDS_NAME_SIZE;
}

pid_t WirePeer(int fd) {
  struct ucred peer;
  socklen_t size = sizeof(peer);
  const bool told = getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0;
  return told && peer.uid == geteuid() ? peer.pid : -1;
}

bool WireIsServed(const char *name) {
  struct sockaddr_un address;
  struct stat status;
  return SocketAddress(name, &address) && (stat(address.sun_path, &status) == 0 || errno != ENOENT);
}

namespace {

/* Who is killed while it starts a program leaves that one with its sockets until the program runs.
 */
bool IsFree(const char *name) {
  for (int look = 0; look < kLooks; ++look) {
    const int probe = WireConnect(name, false);
    if (probe < 0 && errno == ENOENT) return true;
    if (probe >= 0) close(probe);
    tds_delay(kLookMs);
  }
  return false;
}

}  // namespace

int WireListen(const char *name) {
  struct sockaddr_un address;
  if (!SocketAddress(name, &address)) {
    errno = EINVAL;
    return -1;
  }
  if (mkdir(kTdsFolder, 0700) != 0 && errno != EEXIST) return -1;
  if (!IsFree(name)) {
    errno = EADDRINUSE;
    return -1;
  }
  (void)unlink(address.sun_path); /* left by a process that was killed, if at all */
  int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) return -1;
  if (bind(fd, reinterpret_cast<struct sockaddr *>(&address), sizeof(address)) != 0 ||
      listen(fd, SOMAXCONN) != 0)
    return CloseKeepErrno(fd);
  return fd;
}

int WireConnect(const char *name, bool wait) {
  struct sockaddr_un address;
  if (!SocketAddress(name, &address)) {
    errno = ENOENT;
    return -1;
  }
  int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  const struct timeval *limit = wait ? &kSendWait : &kNoWait;
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, limit, sizeof(*limit)); /* bounds connect as well */
  setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof(kSendBuffer));
  if (connect(fd, reinterpret_cast<struct sockaddr *>(&address), sizeof(address)) != 0) {
    if (errno == ECONNREFUSED) errno = ENOENT; /* the file of a process that was killed */
    return CloseKeepErrno(fd);
  }
  if (WirePeer(fd) < 0) {
    errno = EACCES;
    return CloseKeepErrno(fd);
  }
  if (!wait) setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &kSendWait, sizeof(kSendWait));
  return fd;
}

namespace {

/* The reset of a connection is told once; then comes what came before it, then the end. */
template <class Receive>
ssize_t BehindReset(Receive receive) {
  ssize_t size;
  do {
    size = receive();
  } while (size < 0 && errno == ECONNRESET);
  return size;
}

/* 0 or -1 with errno. */
template <class Send>
int Uninterrupted(Send send) {
  ssize_t sent;
  do {
    sent = send();
  } while (sent < 0 && errno == EINTR);
  return sent < 0 ? -1 : 0;
}

int SendCoalesced(int fd, const WireHead &head, const void *data, int flags) {
  uint8_t record[sizeof head + kCoalesced];
  memcpy(record, &head, sizeof head);
  if (head.length > 0) memcpy(record + sizeof head, data, head.length);
  return Uninterrupted([&] { return send(fd, record, sizeof head + head.length, flags); });
}

int SendPieces(int fd, WireHead *head, const void *data, int flags) {
  struct iovec pieces[] = {{head, sizeof *head}, {const_cast<void *>(data), head->length}};
  struct msghdr message = {};
  message.msg_iov = pieces;
  message.msg_iovlen = 2;
  return Uninterrupted([&] { return sendmsg(fd, &message, flags); });
}

/* The record behind the head of a large payload: one byte, and room for the file. */
struct FileRecord {
  char byte;
  struct iovec piece;
  struct msghdr message;
  ControlBuffer control;
};

void Prepare(FileRecord *record) {
  *record = {};
  record->piece = {&record->byte, sizeof record->byte};
  record->message.msg_iov = &record->piece;
  record->message.msg_iovlen = 1;
  record->message.msg_control = record->control.bytes;
  record->message.msg_controllen = sizeof record->control.bytes;
}

int SendFile(int fd, int file, int flags) {
  FileRecord record;
  struct msghdr &message = record.message;
  Prepare(&record);
  struct cmsghdr *part = CMSG_FIRSTHDR(&message);
  part->cmsg_level = SOL_SOCKET;
  part->cmsg_type = SCM_RIGHTS;
  part->cmsg_len = CMSG_LEN(sizeof(int));
  memcpy(CMSG_DATA(part), &file, sizeof(file));
  return Uninterrupted([&] { return sendmsg(fd, &message, flags); });
}

/* A socket that polls as writable takes a few small records more. 0, or -1 with errno. */
int AwaitRoom(int fd, int flags) {
  struct pollfd end = {fd, POLLOUT, 0};
  int ready;
  do {
    ready = poll(&end, 1, (flags & MSG_DONTWAIT) != 0 ? 0 : kSendWaitMs);
  } while (ready < 0 && errno == EINTR);
  if (ready == 0) errno = EAGAIN;
  return ready > 0 ? 0 : -1;
}

/* A head whose file does not follow would take the next record for it: both find room, or none is
   sent. Should the file not follow all the same, the connection is over. */
int SendLarge(int fd, const WireHead &head, const void *data, int flags) {
  int file = PayloadFile(data, head.length);
  if (file < 0) return -1;
  int result = AwaitRoom(fd, flags);
  if (result == 0) result = Uninterrupted([&] { return send(fd, &head, sizeof head, flags); });
  if (result == 0 && (result = SendFile(fd, file, flags)) != 0) {
    int reason = errno;
    shutdown(fd, SHUT_RDWR);
    errno = reason;
  }
  CloseKeepErrno(file);
  return result;
}

/* As WireReceive, with the record that follows an announced head. */
int ReceiveFile(int fd, WireHead *announced, WireFrame *frame, int flags) {
  FileRecord record;
  struct msghdr &message = record.message;
  Prepare(&record);
  const ssize_t size = BehindReset([&] { return recvmsg(fd, &message, flags | MSG_CMSG_CLOEXEC); });
  if (size < 0) return -1;
  const int file = TakeFile(&message);
  frame->head = *announced;
  *announced = {};
  const bool good = size == sizeof record.byte && file >= 0 && MapPayloadFile(file, frame);
  if (file >= 0) close(file);
  frame->data = frame->large.get();
  if (good) return 1;
  errno = EBADMSG;
  return size == 0 ? 0 : -1;
}

}  // namespace

int WireSend(int fd, WireKind kind, uint32_t id, uint32_t sequence, const void *data,
             uint32_t length, int flags) {
  WireHead head = {kMagic, kind, id, sequence, length};
  flags |= MSG_NOSIGNAL;
  if (length <= kCoalesced) return SendCoalesced(fd, head, data, flags);
  if (length <= kInline) return SendPieces(fd, &head, data, flags);
  if (length <= TDS_PAYLOAD_MAX) return SendLarge(fd, head, data, flags);
  errno = EMSGSIZE;
  return -1;
}

int WireReceive(int fd, WireHead *announced, WireFrame *frame, int flags) {
  if (frame->record == nullptr) frame->record.reset(new uint8_t[kRecord]);
  frame->large.reset();
  if (announced->length != 0) return ReceiveFile(fd, announced, frame, flags);
  const ssize_t size = BehindReset([&] { return recv(fd, frame->record.get(), kRecord, flags); });
  if (size <= 0) return static_cast<int>(size);
  errno = EBADMSG;
  if (!OpenFrame(frame, static_cast<size_t>(size))) return -1;
  if (frame->head.length <= kInline) return 1;
  *announced = frame->head;
  return ReceiveFile(fd, announced, frame, flags);
}

const char *WireFault(int reason) {
  switch (reason) {
    case ENOENT:
      return "no such endpoint, is its process running?";
    case EPIPE:
      return "its process is gone: its log tells why";
    case ENOMSG:
      return "its handler gave no answer: check the id";
    case ETIMEDOUT:
      return "no answer in time: it is busy or hangs, its log tells more";
    case EAGAIN:
      return "its queue stayed full: it is busy or hangs, try later";
    case EMSGSIZE:
      return "the payload is larger than 64 MiB: send less";
    case EPERM:
      return "only the runtime itself sends this id: take another";
    case EUSERS:
      return "it has no room for more connections: end some of its clients";
    default:
      return strerror(reason);
  }
}
