// Frames on the runtime's sockets: any record, with files in it or, behind a large payload's head,
// in the next one. The first byte tells which, the rest is the record, and an endpoint's name as
// well.
#include <fcntl.h>
#include <linux/memfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include <cerrno>
#include <vector>

#include "check.h"
#include "wire.h"

namespace {

int ends[2];
WireHead announced;

/* F_ADD_SEALS, and against shrinking, growing and writing: some C libraries do not know them. */
constexpr int kAddSeals = 1033, kSeals = 2 | 4 | 8;

/* An emulator keeps descriptors that its program's buffer has no room for, and does not tell. */
#ifdef UNDER_EMULATOR
constexpr bool kToldOfTwo = false;
#else
constexpr bool kToldOfTwo = true;
#endif

int LowestFree() {
  int file = dup(STDIN_FILENO);
  close(file);
  return file;
}

/* What is passed: files of which not each is one that the receiver may trust. */
enum : uint8_t { NOTHING, SEALED, OPEN, SHORT, TWO, DEVICE, KINDS, WITH_HEAD = 0x80 };

std::vector<int> FilesOf(int kind, size_t length) {
  std::vector<int> files;
  if (kind == DEVICE) files.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
  if (kind == NOTHING || kind == DEVICE) return files;
  for (int count = kind == TWO ? 2 : 1; count > 0; --count) {
    int file = static_cast<int>(syscall(SYS_memfd_create, "fuzz", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    Check(ftruncate(file, static_cast<off_t>(kind == SHORT ? length / 2 : length)) == 0,
          "no memory file");
    if (kind != OPEN) fcntl(file, kAddSeals, kSeals);
    files.push_back(file);
  }
  return files;
}

/* As any other process of our user might send it. */
void Send(const void *record, size_t size, const std::vector<int> &files) {
  alignas(cmsghdr) char control[CMSG_SPACE(2 * sizeof(int))] = {};
  iovec piece = {const_cast<void *>(record), size};
  msghdr message = {};
  message.msg_iov = &piece;
  message.msg_iovlen = 1;
  if (!files.empty()) {
    size_t bytes = files.size() * sizeof(int);
    message.msg_control = control;
    message.msg_controllen = CMSG_SPACE(bytes);
    cmsghdr *part = CMSG_FIRSTHDR(&message);
    part->cmsg_level = SOL_SOCKET;
    part->cmsg_type = SCM_RIGHTS;
    part->cmsg_len = CMSG_LEN(bytes);
    memcpy(CMSG_DATA(part), files.data(), bytes);
  }
  Check(sendmsg(ends[0], &message, MSG_NOSIGNAL | MSG_DONTWAIT) >= 0, "the record is not sent");
}

int Receive(WireFrame *frame) { return WireReceive(ends[1], &announced, frame, MSG_DONTWAIT); }

/* The frame is what the record says, and what the runtime itself sends of it is the same. */
void CheckFrame(const WireFrame &frame, const uint8_t *record, size_t size) {
  const WireHead &head = frame.head;
  WireFrame again;
  Check(memcmp(&head, record, sizeof head) == 0, "the head is another one");
  Check(head.length <= TDS_PAYLOAD_MAX, "the payload is larger than may be");
  Check((frame.data == nullptr) == (head.length == 0), "a payload without bytes, or none with");
  Check(reinterpret_cast<uintptr_t>(frame.data) % 8 == 0, "the payload is not aligned");
  if (frame.large == nullptr)
    Check(size - sizeof head == head.length &&
              (head.length == 0 || memcmp(frame.data, record + sizeof head, head.length) == 0),
          "the payload is another one");
  Check(WireSend(ends[0], head.kind, head.id, head.sequence, frame.data, head.length,
                 MSG_DONTWAIT) == 0,
        "the frame cannot be sent on");
  Check(Receive(&again) == 1, "its own frame is refused");
  Check(memcmp(&again.head, &head, sizeof head) == 0, "the head changes");
  Check(head.length == 0 || memcmp(again.data, frame.data, head.length) == 0,
        "the payload changes");
}

void CheckName(std::string_view name) {
  const std::string text(name);
  bool fits = !text.empty() && text[0] != '.' && strlen(text.c_str()) < TDS_NAME_SIZE &&
              text[0] != '\0' && strchr(text.c_str(), '/') == nullptr;
  Check(WireNameFits(text.c_str()) == fits, "what is no name is taken for one, or the reverse");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  Check(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) == 0, "no sockets");
  return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static WireFrame frame; /* as a module has it, from message to message */
  if (size < 2) return 0;
  const uint8_t *record = data + 1;
  const int lowest_free = LowestFree();
  uint32_t length = 0; /* of the payload, as the head has it, but no more than is made at once */
  if (--size >= sizeof(WireHead))
    memcpy(&length, record + offsetof(WireHead, length), sizeof length);
  const int kind = (data[0] & ~WITH_HEAD) % KINDS;
  if (kind == TWO && !kToldOfTwo) return 0;
  const std::vector<int> none, files = FilesOf(kind, length > 1 << 20 ? 1 << 16 : length);
  const bool with_head = (data[0] & WITH_HEAD) != 0;
  Send(record, size, with_head ? files : none);
  int got = Receive(&frame);
  if (got == -1 && errno == EAGAIN) { /* the file is to come */
    Send("", 1, with_head ? none : files);
    got = Receive(&frame);
    Check(got == -1 || (kind == SEALED && !with_head), "a file that may change is trusted");
  }
  for (int file : files) close(file);
  Check(got == 1 || (got == -1 && errno == EBADMSG), "a record is taken for the end, or an error");
  Check(announced.length == 0, "a file is still waited for");
  if (got == 1) CheckFrame(frame, record, size);
  frame.large.reset();
  Check(LowestFree() == lowest_free, "a descriptor is left open");
  CheckName(TextOf(record, size));
  return 0;
}
