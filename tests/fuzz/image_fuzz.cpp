// Images of firmware: any bytes are one only with the digest of what they hold.
#include "check.h"
#include "vermgt_image.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string bytes(TextOf(data, size));
  std::string why;
  if (ImageCheck(bytes, &why) == 0) {
    const size_t head = bytes.find('\n') + 1;
    Check(ImageOf(bytes.substr(head)) == bytes, "an image with another digest is taken");
  } else {
    Check(!why.empty() && why.find('\n') == why.npos, "why it is none is not one line");
  }
  if (bytes.empty()) return 0;
  std::string image = ImageOf(bytes);
  Check(ImageCheck(image, &why) == 0, "an image is refused");
  image.back() = static_cast<char>(image.back() ^ 1);
  Check(ImageCheck(image, &why) != 0, "a damaged image is taken");
  return 0;
}
