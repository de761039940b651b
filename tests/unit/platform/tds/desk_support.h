// Beyond the contract: calls with a reason, and a bare socket with frames made by hand, as a
// stranger or an attacker sends them.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/memfd.h>
#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "tds_desk.h"
#include "tds_support.h"

/* What Call says of one that failed. */
inline std::string Failed(int reason) { return std::string("failed: ") + strerror(reason); }

/* As Ask, with the reason and a limit. */
inline std::string Call(uint32_t id, const std::string &payload, const char *dest,
                        uint32_t limit = Patience() * 1000) {
  std::string reply;
  int result =
      tds_call(id, payload.data(), static_cast<uint32_t>(payload.size()), dest, limit, &reply);
  return result == 0 ? reply : Failed(errno);
}

/* A file as a large payload comes in, sealed against shrinking, growing and writing. */
inline int SealedFile(const std::string &payload) {
  constexpr int kAddSeals = 1033, kSeals = 2 | 4 | 8; /* some C libraries do not know them */
  int file = static_cast<int>(syscall(SYS_memfd_create, "raw", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  EXPECT_EQ(static_cast<ssize_t>(payload.size()), write(file, payload.data(), payload.size()));
  EXPECT_EQ(0, fcntl(file, kAddSeals, kSeals));
  return file;
}

struct Raw {
  int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
  explicit Raw(int accepted) : fd(accepted) {}
  explicit Raw(const std::string &name, int backlog = -1) {
    struct sockaddr_un address = {AF_UNIX, ""};
    snprintf(address.sun_path, sizeof address.sun_path, "%s/%s", kTdsFolder, name.c_str());
    const struct sockaddr *at = reinterpret_cast<struct sockaddr *>(&address);
    if (backlog < 0) {
      EXPECT_EQ(0, connect(fd, at, sizeof address)) << name << ": " << strerror(errno);
    } else {
      unlink(address.sun_path);
      EXPECT_EQ(0, bind(fd, at, sizeof address) | listen(fd, backlog));
    }
  }
  Raw(Raw &&other) : fd(std::exchange(other.fd, -1)) {}
  ~Raw() {
    if (fd >= 0) close(fd);
  }
  Raw Accept() { return Raw(accept4(fd, nullptr, nullptr, SOCK_CLOEXEC)); }
  void Send(const std::string &frame, const std::vector<int> &passed = {}) {
    struct iovec piece = {const_cast<char *>(frame.data()), frame.size()};
    struct msghdr message = {};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    std::vector<char> control(CMSG_SPACE(passed.size() * sizeof(int)));
    if (!passed.empty()) {
      message.msg_control = control.data();
      message.msg_controllen = control.size();
      struct cmsghdr *part = CMSG_FIRSTHDR(&message);
      *part = {CMSG_LEN(passed.size() * sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
      memcpy(CMSG_DATA(part), passed.data(), passed.size() * sizeof(int));
    }
    (void)sendmsg(fd, &message, MSG_NOSIGNAL); /* may be closed already */
  }
  /* Waits until the other side has read all that was sent. */
  void AwaitRead() {
    int unread = 1;
    for (auto end = Clock::now() + std::chrono::seconds(Patience()); unread != 0;) {
      ASSERT_EQ(0, ioctl(fd, SIOCOUTQ, &unread));
      ASSERT_LT(Clock::now(), end) << unread << " bytes are not read";
    }
  }
  /* The next record; "" at the end of the connection, "silence" when nothing comes. */
  std::string Next(int limit_ms = static_cast<int>(Patience()) * 1000) {
    char record[65536];
    struct pollfd end = {fd, POLLIN, 0};
    if (poll(&end, 1, limit_ms) != 1) return "silence";
    ssize_t size = recv(fd, record, sizeof(record), MSG_DONTWAIT);
    if (size < 0) size = recv(fd, record, sizeof(record), MSG_DONTWAIT); /* a reset comes first */
    return std::string(record, static_cast<size_t>(std::max<ssize_t>(size, 0)));
  }
};

constexpr uint16_t kHelloFrame = 0, kPostFrame = 1, kCallFrame = 2, kAnswerFrame = 3,
                   kRefusedFrame = 4, kNoteFrame = 5;

inline std::string Frame(uint16_t kind, uint32_t id, uint32_t sequence, const std::string &payload,
                         size_t length = std::string::npos) {
  const uint16_t start[] = {0x7d51, kind};
  const uint32_t rest[] = {
      id, sequence, static_cast<uint32_t>(length == std::string::npos ? payload.size() : length)};
  return std::string(reinterpret_cast<const char *>(start), sizeof(start)) +
         std::string(reinterpret_cast<const char *>(rest), sizeof(rest)) + payload;
}
inline const std::string kHello = Frame(kHelloFrame, 0, 0, std::string("raw\0", 4));
