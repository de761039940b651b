// The runtime's sockets and the frames on them.
#include "wire.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace {

constexpr int kSendBuffer = 1024 * 1024; /* a queue's bound; the kernel may grant less */
constexpr time_t kSendWaitSeconds = 2;   /* how long a sender waits for room */

union ControlBuffer {
  char bytes[CMSG_SPACE(sizeof(int))];
  struct cmsghdr align;
};

bool SocketAddress(const char *name, struct sockaddr_un *address) {
  *address = {};
  address->sun_family = AF_UNIX;
  int length =
      snprintf(address->sun_path, sizeof(address->sun_path), "%s/%s", TDS_RUNTIME_DIR, name);
  return WireNameFits(name) && length < static_cast<int>(sizeof(address->sun_path));
}

/* A memory file with the payload, sealed so that the receiver may trust its size. */
int PayloadFile(const void *data, uint32_t length) {
  int fd = memfd_create("tds-payload", MFD_CLOEXEC | MFD_ALLOW_SEALING);
  if (fd < 0) return -1;
  const char *next = static_cast<const char *>(data);
  while (length > 0) {
    ssize_t written = write(fd, next, length);
    if (written <= 0) break;
    next += written;
    length -= static_cast<uint32_t>(written);
  }
  if (length == 0 && fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE) == 0)
    return fd;
  close(fd);
  return -1;
}

int PassedFile(struct msghdr *message) {
  int passed = -1;
  for (struct cmsghdr *part = CMSG_FIRSTHDR(message); part != nullptr;
       part = CMSG_NXTHDR(message, part))
    if (part->cmsg_level == SOL_SOCKET && part->cmsg_type == SCM_RIGHTS)
      memcpy(&passed, CMSG_DATA(part), sizeof(passed));
  return passed;
}

bool ReadPayloadFile(int fd, uint32_t length, std::vector<uint8_t> *payload) {
  struct stat status;
  if (fstat(fd, &status) != 0 || status.st_size != static_cast<off_t>(length)) return false;
  payload->resize(length);
  for (uint32_t done = 0; done < length;) {
    ssize_t got = pread(fd, payload->data() + done, length - done, done);
    if (got <= 0) return false;
    done += static_cast<uint32_t>(got);
  }
  return true;
}

/* Checks the received record and points the frame at its payload. */
bool OpenFrame(WireFrame *frame, size_t size, int passed_file) {
  if (size < sizeof(WireHead)) return false;
  memcpy(&frame->head, frame->record.data(), sizeof(WireHead));
  const WireHead &head = frame->head;
  if (head.magic != kWireMagic || head.kind > WireKind::kRefused || head.length > TDS_PAYLOAD_MAX)
    return false;
  frame->data = nullptr;
  if (head.length > kWireInline) {
    if (passed_file < 0 || !ReadPayloadFile(passed_file, head.length, &frame->large)) return false;
    frame->data = frame->large.data();
    return true;
  }
  if (size - sizeof(WireHead) != head.length) return false;
  if (head.length > 0) frame->data = frame->record.data() + sizeof(WireHead);
  return true;
}

int CloseKeepErrno(int fd) {
  int reason = errno;
  close(fd);
  errno = reason;
  return -1;
}

}  // namespace

bool WireNameFits(const char *name) {
  return name != nullptr && name[0] != '\0' && name[0] != '.' && strchr(name, '/') == nullptr &&
         strnlen(name, TDS_NAME_SIZE) < TDS_NAME_SIZE;
}

bool WirePeerIsOurs(int fd) {
  struct ucred peer;
  socklen_t size = sizeof(peer);
  return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == geteuid();
}

int WireListen(const char *name) {
  struct sockaddr_un address;
  if (!SocketAddress(name, &address)) {
    errno = EINVAL;
    return -1;
  }
  if (mkdir(TDS_RUNTIME_DIR, 0700) != 0 && errno != EEXIST) return -1;
  int probe = WireConnect(name);
  if (probe >= 0) {
    close(probe);
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

int WireConnect(const char *name) {
  struct sockaddr_un address;
  if (!SocketAddress(name, &address)) {
    errno = ENOENT;
    return -1;
  }
  int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  struct timeval wait = {kSendWaitSeconds, 0};
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &wait, sizeof(wait)); /* bounds connect as well */
  setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof(kSendBuffer));
  if (connect(fd, reinterpret_cast<struct sockaddr *>(&address), sizeof(address)) != 0) {
    if (errno == ECONNREFUSED) errno = ENOENT; /* the file of a process that was killed */
    return CloseKeepErrno(fd);
  }
  if (!WirePeerIsOurs(fd)) {
    errno = EACCES;
    return CloseKeepErrno(fd);
  }
  return fd;
}

int WireSend(int fd, WireKind kind, uint32_t id, uint32_t sequence, const void *data,
             uint32_t length, int flags) {
  if (length > TDS_PAYLOAD_MAX) {
    errno = EMSGSIZE;
    return -1;
  }
  WireHead head = {kWireMagic, kind, id, sequence, length};
  struct iovec pieces[] = {{&head, sizeof(head)}, {const_cast<void *>(data), length}};
  struct msghdr message = {};
  message.msg_iov = pieces;
  message.msg_iovlen = length == 0 || length > kWireInline ? 1 : 2;
  ControlBuffer control;
  int file = -1;
  if (length > kWireInline) {
    file = PayloadFile(data, length);
    if (file < 0) return -1;
    message.msg_control = control.bytes;
    message.msg_controllen = sizeof(control.bytes);
    struct cmsghdr *part = CMSG_FIRSTHDR(&message);
    part->cmsg_level = SOL_SOCKET;
    part->cmsg_type = SCM_RIGHTS;
    part->cmsg_len = CMSG_LEN(sizeof(int));
    memcpy(CMSG_DATA(part), &file, sizeof(file));
  }
  ssize_t sent;
  do {
    sent = sendmsg(fd, &message, flags | MSG_NOSIGNAL);
  } while (sent < 0 && errno == EINTR);
  if (file >= 0) CloseKeepErrno(file);
  return sent < 0 ? -1 : 0;
}

int WireReceive(int fd, WireFrame *frame, int flags) {
  if (frame->record.empty()) frame->record.resize(sizeof(WireHead) + kWireInline + 1);
  struct iovec piece = {frame->record.data(), frame->record.size()};
  ControlBuffer control;
  struct msghdr message = {};
  message.msg_iov = &piece;
  message.msg_iovlen = 1;
  message.msg_control = control.bytes;
  message.msg_controllen = sizeof(control.bytes);
  ssize_t size;
  do {
    size = recvmsg(fd, &message, flags | MSG_CMSG_CLOEXEC);
  } while (size < 0 && errno == EINTR);
  if (size < 0) return errno == ECONNRESET ? 0 : -1;
  int passed_file = PassedFile(&message);
  bool good = OpenFrame(frame, static_cast<size_t>(size), passed_file);
  if (passed_file >= 0) close(passed_file);
  if (good) return 1;
  if (size == 0) return 0;
  errno = EBADMSG;
  return -1;
}
