// Images of firmware; see vermgt_image.h.
#include "vermgt_image.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "parse.h"
#include "sha256.h"

namespace {

constexpr char kFolder[] = "/var/persist/firmware";
constexpr char kImageFlashed[] = "/var/persist/firmware/image";
constexpr char kPrepared[] = "/var/persist/firmware/image.new";
constexpr char kMark[] = "sha256 ";
constexpr size_t kMarkSize = sizeof kMark - 1, kDigits = 64, kHead = kMarkSize + kDigits + 1;

int Failed(const char *what, const char *path, std::string *why) {
  *why = std::string("cannot ") + what + " " + path + ": " + strerror(errno);
  return -1;
}

int Refuse(const std::string &text, std::string *why) {
  *why = text;
  return -1;
}

std::string Digits(const char *bytes, size_t length) {
  auto digest = Sha256(bytes, length);
  return HexFromBytes({reinterpret_cast<const char *>(digest.data()), digest.size()}, kHexLower);
}

/* The digits of an image's first line; "" when it has no such line. */
std::string HeadDigits(const std::string &image) {
  if (image.size() < kHead || image.compare(0, kMarkSize, kMark) != 0 || image[kHead - 1] != '\n')
    return "";
  const std::string digits = image.substr(kMarkSize, kDigits);
  return digits.find_first_not_of(kHexLower) == digits.npos ? digits : "";
}

int ReadOpen(int file, const char *path, std::string *bytes, std::string *why) {
  struct stat status;
  if (fstat(file, &status) != 0) return Failed("read", path, why);
  if (!S_ISREG(status.st_mode)) return Refuse(std::string(path) + " is no plain file", why);
  char block[64 * 1024];
  ssize_t length;
  bytes->clear();
  while ((length = read(file, block, sizeof block)) > 0) {
    bytes->append(block, static_cast<size_t>(length));
    if (bytes->size() > kImageMax)
      return Refuse(std::string(path) + " has more than " + std::to_string(kImageMax) + " bytes",
                    why);
  }
  return length == 0 ? 0 : Failed("read", path, why);
}

int WriteOpen(int file, const std::string &bytes) {
  for (size_t done = 0; done < bytes.size();) {
    ssize_t length = write(file, bytes.data() + done, bytes.size() - done);
    if (length < 0) return -1;
    done += static_cast<size_t>(length);
  }
  return fsync(file);
}

/* The name of a file is on the disk when its folder is. */
int SyncFolder() {
  int folder = open(kFolder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  int result = folder < 0 ? -1 : fsync(folder);
  if (folder >= 0) close(folder);
  return result;
}

}  // namespace

int ImageRead(const char *path, std::string *bytes, std::string *why) {
  int file =
      open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC); /* a pipe of that name holds up nobody */
  if (file < 0) return Failed("read", path, why);
  int result = ReadOpen(file, path, bytes, why);
  close(file);
  return result;
}

std::string ImageOf(const std::string &content) {
  return kMark + Digits(content.data(), content.size()) + "\n" + content;
}

int ImageCheck(const std::string &image, std::string *why) {
  std::string digits = HeadDigits(image);
  if (digits.empty())
    return Refuse(
        "no image: its first line is not \"sha256\" and 64 digits, vermgtctl image makes "
        "one",
        why);
  if (image.size() == kHead) return Refuse("an image without content", why);
  std::string real = Digits(image.data() + kHead, image.size() - kHead);
  if (digits == real) return 0;
  return Refuse("damaged: its first line has digest " + digits + ", the content " + real, why);
}

int ImageWrite(const char *path, const std::string &image, std::string *why) {
  int file = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (file < 0) return Failed("write", path, why);
  int result = WriteOpen(file, image) == 0 ? 0 : Failed("write", path, why);
  close(file);
  if (result != 0) (void)unlink(path); /* the failure is told already */
  return result;
}

int ImagePrepare(const std::string &image, std::string *why) {
  if (mkdir(kFolder, 0755) != 0 && errno != EEXIST) return Failed("make", kFolder, why);
  return ImageWrite(kPrepared, image, why);
}

int ImageSwitch(std::string *why) {
  if (rename(kPrepared, kImageFlashed) != 0) return Failed("make", kImageFlashed, why);
  return SyncFolder() == 0 ? 0 : Failed("sync", kFolder, why);
}

void ImageDrop() { (void)unlink(kPrepared); /* it is seldom there */ }

Json ImageFlashed() {
  std::string image, why;
  if (ImageRead(kImageFlashed, &image, &why) != 0 || HeadDigits(image).empty()) return nullptr;
  return {{"sha256", HeadDigits(image)}, {"bytes", image.size() - kHead}};
}
